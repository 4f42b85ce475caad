// Starts, stops and switches streams many times and checks that the agent's kernel handles, GDI objects,
// threads, memory and COM objects do not grow. VANTELINK_FULL_COUNTS=1 in the environment runs all rounds,
// which takes minutes.
#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

// The resources that the agent's process holds.
struct Census {
  int handles = 0, gdi_objects = 0, threads = 0;
  long kilobytes = 0;  // private memory
};

class LeakTest : public StreamTest, public testing::WithParamInterface<const char*> {
 protected:
  // The memory by which the heaps may grow until they reach their final size. In a full run, a leak of 4 KiB
  // at each start, or of 32 KiB in each round of switches, is more than that.
  static constexpr long kMemorySlack = 3 * 1024;  // kilobytes
  static constexpr int kRepetitions = 3;
  // Handles or objects of threads and caches that exist at some of the counts only.
  static constexpr int kSlack = 8;

  void SetUp() override {
    StreamTest::SetUp();
    register_encoders(GetParam());  // "none" registers no encoder, so the stream is JPEG
    set_outputs({{0, 0, 320, 240}, {320, 0, 320, 240}});
  }

  static int rounds(int few, int all) {
    const char* const full = std::getenv("VANTELINK_FULL_COUNTS");
    return full != nullptr && *full == '1' ? all : few;
  }

  // Wine 8 leaks the handle of a registry key for each encoder that a search finds, even if the encoder has
  // been removed. If a search for hardware encoders finds none, the agent searches a second time.
  static int leaked_by_wine(int openings) { return openings * (GetParam() == std::string("async") ? 1 : 2); }

  // Counts the resources between two streams. A request for a thumbnail makes the agent list its monitors,
  // and the double then fills in the census.
  Census take_census() {
    Census census;
    (*desktop)->census_wanted = 1;
    send(Msg::ThumbnailRequest);
    peer_->read_until(Msg::Thumbnail);
    EXPECT_TRUE(eventually([&] { return (*desktop)->census_wanted == 0; }));
    EXPECT_TRUE(answers());
    census.handles = (*desktop)->census_handles;
    census.gdi_objects = (*desktop)->census_gdi_objects;
    EXPECT_EQ((*desktop)->live, 0);
    EXPECT_EQ((*desktop)->references, 0);
    EXPECT_EQ((*codec)->live, 0);
    census.threads = threads();
    census.kilobytes = memory_kilobytes(pid_, {"Private_Dirty:"});
    return census;
  }

  [[nodiscard]] int threads() const {
    const std::filesystem::directory_iterator tasks("/proc/" + std::to_string(pid_) + "/task");
    return static_cast<int>(std::distance(tasks, {}));
  }

  // Runs `round` `count` times and expects the same resources before and after. `openings` is the number of
  // times that a round opens an encoder or tries to. Ten rounds run before the first census, because they
  // create the objects that are created only once. On a busy machine some of these come later, and heaps
  // reach their final size later, so all runs again if something has grown: a leak grows each time.
  void expect_no_growth(int count, int openings, const std::function<void()>& round) {
    peer_ = start({}, environment_);
    peer_->read_until(Msg::Hello);
    for (int i = 0; i < 10; ++i)
      round();
    std::string grown = "not run";
    for (int i = 0; i < kRepetitions && !grown.empty() && !HasFailure(); ++i)
      grown = growth(count, openings, round);
    EXPECT_EQ(grown, "");
  }

  // Returns the names of the resources that are more after the rounds than before them.
  std::string growth(int count, int openings, const std::function<void()>& round) {
    const Census before = take_census();
    for (int i = 0; i < count; ++i)
      round();
    const Census after = take_census();
    std::printf("%d rounds: handles %d -> %d, GDI objects %d -> %d, threads %d -> %d, KiB %ld -> %ld\n",
                count, before.handles, after.handles, before.gdi_objects, after.gdi_objects, before.threads,
                after.threads, before.kilobytes, after.kilobytes);
    EXPECT_GT(before.handles, 0);
    std::string grown;
    if (after.handles > before.handles + leaked_by_wine(count * openings) + kSlack) grown += "handles ";
    if (after.gdi_objects > before.gdi_objects + kSlack) grown += "GDI objects ";
    // A thread that has ended for Windows exists for the system a little longer, and Wine keeps idle threads
    // of its pools for some seconds.
    if (!eventually([&] { return threads() <= before.threads; })) grown += "threads ";
    if (after.kilobytes > before.kilobytes + kMemorySlack) grown += "memory ";
    return grown;
  }

  void expect_no_growth_by_switches(Msg type, const std::array<const char*, 2>& there_and_back,
                                    int openings) {
    expect_no_growth(rounds(10, 100), openings, [&] {
      start_stream(R"({"max_fps":1000})");
      next_frame();
      for (const char* const text : there_and_back) {
        send(type, text);
        next_announced();
      }
      stop();
    });
  }

  void stop() {
    send(Msg::StreamStop);
    ASSERT_TRUE(answers());
  }
};

INSTANTIATE_TEST_SUITE_P(Encoders, LeakTest, testing::Values("sync", "async", "none"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(LeakTest, StartingAndStoppingStreamsLeaksNothing) {
  expect_no_growth(rounds(50, 1000), 1, [&] {
    start_stream(R"({"max_fps":1000})");
    next_frame();
    stop();
  });
}

TEST_P(LeakTest, SwitchingMonitorsLeaksNothing) {
  expect_no_growth_by_switches(Msg::MonitorSelect, {R"({"monitor_id":1})", R"({"monitor_id":0})"}, 3);
}

TEST_P(LeakTest, SwitchingCodecsLeaksNothing) {
  expect_no_growth_by_switches(Msg::CodecSelect, {R"({"codec":"mjpeg"})", R"({"codec":"h264"})"}, 2);
}

}  // namespace
