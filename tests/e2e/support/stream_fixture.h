// The executable with the doubles beside it: a scripted desktop that it duplicates and an H.264 encoder that
// the test chooses, with the boards on which the test sets what both do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "e2e/support/agent_fixture.h"
#include "e2e/support/video.h"
#include "tests/doubles/boards.h"

namespace vantelink_test {

// A board in a file that the doubles map.
template <typename Board>
class SharedBoard {
 public:
  explicit SharedBoard(const std::string& path);
  ~SharedBoard();
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;
  void clear();  // only while no agent runs
  Board* operator->() const { return board_; }

 private:
  Board* board_;
};

// A message of the stream.
struct StreamedFrame {
  std::vector<std::string> configs;  // announcements since the frame before, as they came
  std::int64_t time = 0;             // microseconds
  Bytes data;                        // without the time
  std::vector<AccessUnit> units;     // while the stream is H.264

  bool key() const { return !units.empty() && units.front().key; }
};

class StreamTest : public AgentTest {
 protected:
  static constexpr std::uint32_t kSession = 5;

  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;

  // Which encoders the system has: words out of "sync" and "async".
  static void register_encoders(const std::string& kinds);

  // Outputs in the order of the walk, the second and later on the second adapter.
  struct Area {
    int left, top, width, height;
  };
  void set_outputs(const std::vector<Area>& areas);

  // Connects an agent, starts its stream with the pointer hidden, and remembers the connection.
  void start_stream(const std::string& settings = R"({"max_fps":30})");
  void say(vlk::Msg type, const std::string& payload = {});

  // The next frame. Judges what holds for all: session, rising times, whole pictures, parameter sets before
  // key frames, the codec that was announced.
  StreamedFrame next_frame(Milliseconds patience = kPatience);
  // Passes over frames up to the next announcement; the frame that follows it.
  StreamedFrame next_announced();
  // Whether the agent's connection thread is at work: it answers.
  bool answers(Milliseconds patience = kPatience);

  // Decodes and compares with the scripted desktop; the number of each picture in the frame.
  std::vector<std::uint32_t> numbers(const StreamedFrame& frame, std::uint32_t output = 0);

  inline static std::string registered;
  inline static SharedBoard<vantelink_doubles::DesktopBoard>* desktop;
  inline static SharedBoard<vantelink_doubles::CodecBoard>* codec;
  std::vector<std::string> environment_;  // of the agent
  std::unique_ptr<ServerConnection> peer_;
  std::string config_;  // the last one
  std::optional<std::int64_t> last_time_;
  std::unique_ptr<VideoDecoder> decoder_;
};

// The announcement of a stream.
std::string config_text(const std::string& codec, int width, int height, int monitor = 0);

}  // namespace vantelink_test
