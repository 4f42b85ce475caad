// Runs the shipped executable with doubles of Windows' libraries in its folder: a scripted desktop that it
// duplicates, and H.264 encoders that the test chooses. The test controls both through boards in shared
// memory, which tests/doubles/boards.h describes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "e2e/support/agent_fixture.h"
#include "e2e/support/video.h"
#include "tests/doubles/boards.h"

namespace vantelink_test {

// A board in a file that the test and the doubles map.
template <typename Board>
class SharedBoard {
 public:
  explicit SharedBoard(const std::string& path);
  ~SharedBoard();
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;
  void clear();  // must not be called while an agent runs
  Board* operator->() const { return board_; }

 private:
  Board* board_;
};

// One message of the stream, and the announcements before it.
struct StreamedFrame {
  std::vector<std::string> configs;  // the announcements since the previous frame, in order
  std::int64_t time = 0;             // microseconds
  Bytes data;                        // the message without the time
  std::vector<AccessUnit> units;     // the pictures of an H.264 stream; empty for JPEG

  bool key() const { return !units.empty() && units.front().key; }
};

class StreamTest : public AgentTest {
 protected:
  static constexpr std::uint32_t kSession = 5;

  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;
  // Also checks that the agent made no call that the desktop's double forbids.
  void TearDown() override;

  // Registers these encoders and no others: "sync", "async", "sync async" for both, or an
  // empty text for none.
  static void register_encoders(const std::string& kinds);

  // Sets the outputs in the order in which Windows enumerates them: the first on the first adapter, all
  // others on the second.
  struct Area {
    int left, top, width, height;
  };
  void set_outputs(const std::vector<Area>& areas);

  // Starts the stream, with the pointer hidden. Starts an agent first if none is connected.
  void start_stream(const std::string& settings = R"({"max_fps":30})");
  void send(vlk::Msg type, const std::string& payload = {});

  // Reads the next frame and checks what is true of every frame: the session, rising times, complete
  // pictures, parameter sets before key frames and only there, the announced codec.
  StreamedFrame next_frame(Milliseconds timeout = kPatience);
  // Reads up to the first frame after the next announcement.
  StreamedFrame next_announced();
  // Does the same, and expects exactly one announcement, with this text.
  StreamedFrame next_announced(const std::string& config);
  // Whether the agent's connection thread answers a heartbeat before the timeout.
  [[nodiscard]] bool answers(Milliseconds timeout = kPatience);

  // Decodes the frame's pictures, compares them with the scripted desktop and returns the number in each.
  std::vector<std::uint32_t> check_pictures(const StreamedFrame& frame, std::uint32_t output = 0);

  // The registered encoders and a full stop; empty before the first registration.
  inline static std::string registered;
  inline static SharedBoard<vantelink_doubles::DesktopBoard>* desktop;
  inline static SharedBoard<vantelink_doubles::CodecBoard>* codec;
  std::vector<std::string> environment_;  // the environment of agents that start_stream() starts
  std::unique_ptr<ServerConnection> peer_;
  std::string config_;                     // the last announcement
  std::optional<std::int64_t> last_time_;  // the time of the last frame of this stream
  std::unique_ptr<VideoDecoder> decoder_;
};

// The announcement (StreamConfig) of a stream.
std::string config_text(const std::string& codec, int width, int height, int monitor = 0);

}  // namespace vantelink_test
