// The stream's thread: start, stop, and settings that change while it runs.
#include "stream/streamer.h"

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "fakes/fakes.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::note;
using vantelink_fakes::wait_for;

class StreamerTest : public testing::Test {
 protected:
  void SetUp() override { vantelink_fakes::reset(); }
  SendCallable send_ = [](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return true; };
};

TEST_F(StreamerTest, StartingAStreamerTwiceRunsOneWorkerWithTheFirstSettings) {
  ScreenStreamer streamer(1, send_);
  streamer.Start(3, 100, 70, 1);
  streamer.Start(4, 100, 70, 1);
  ASSERT_TRUE(wait_for("CaptureGdi", 2));
  streamer.Stop();
  EXPECT_EQ(count("Open 4"), 0u);
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, StoppingWithoutAStartOrTwiceIsHarmless) {
  ScreenStreamer streamer(1, send_);
  streamer.Stop();
  streamer.Start(0, 100, 70, 1);
  streamer.Stop();
  streamer.Stop();
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, DestroyingTheStreamerEndsTheWorker) {
  {
    ScreenStreamer streamer(1, send_);
    streamer.Start(0, 100, 70, 1);
    ASSERT_TRUE(wait_for("CaptureGdi"));
  }
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, SettingsCanChangeWhileTheWorkerRuns) {
  vantelink_fakes::script().init = [] { return true; };
  ScreenStreamer streamer(1, send_);
  streamer.Start(0, 1000, 70, 1);
  for (int i = 0; i < 2000; ++i) {
    streamer.SetMonitor(i % 3);
    streamer.SetCodec(i % 2 == 0 ? "mjpeg" : "h264");
    streamer.SetCursorVisible(i % 5 == 0);
    streamer.RequestKeyframe();
  }
  ASSERT_TRUE(wait_for("CaptureGdi", 5));
  streamer.Stop();
}

TEST_F(StreamerTest, StreamersCanBeStartedAndStoppedManyTimes) {
  for (int i = 0; i < 200; ++i) {
    ScreenStreamer streamer(1, send_);
    streamer.Start(0, 1000, 70, 1);
  }
  EXPECT_EQ(count("~ScreenCapturer"), count("~H264Encoder"));
}

class StreamThreadTest : public testing::Test {
 protected:
  void SetUp() override {
    vantelink_fakes::reset();
    vantelink_fakes::script().init = [] { return true; };
  }
};

TEST_F(StreamThreadTest, OnlyTheExactNameMjpegSelectsJpeg) {
  const SendCallable send = [](Msg type, unsigned, const unsigned char* data, std::size_t length,
                               unsigned char) {
    if (type == Msg::StreamConfig) note(std::string(reinterpret_cast<const char*>(data), length));
    return true;
  };
  ScreenStreamer streamer(1, send);
  streamer.Start(0, 500, 70, 1);
  ASSERT_TRUE(wait_for(R"({"codec":"h264","w":8,"h":4,"monitor_id":0})"));
  std::size_t switches = 0;
  for (const std::string& name : {std::string("h264"), std::string("H264"), std::string(),
                                  std::string("MJPEG"), std::string("mjpeg "), std::string("mjpeg\0", 6)}) {
    ++switches;
    streamer.SetCodec("mjpeg");
    ASSERT_TRUE(wait_for(R"({"codec":"mjpeg","w":8,"h":4,"monitor_id":0})", switches)) << name;
    streamer.SetCodec(name);
    ASSERT_TRUE(wait_for(R"({"codec":"h264","w":8,"h":4,"monitor_id":0})", switches + 1)) << name;
  }
}

TEST_F(StreamThreadTest, StoppingWaitsForTheSendInProgressAndNothingIsSentAfterwards) {
  std::promise<void> release, stop;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> sends{0};
  // A streamer is created, stopped and destroyed on one thread.
  auto stopped = std::async(std::launch::async, [&] {
    ScreenStreamer streamer(1, [&](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) {
      note("sending");
      ++sends;
      released.wait();
      note("sent");
      return false;
    });
    streamer.Start(0, 500, 70, 1);
    stop.get_future().wait();
    streamer.Stop();
    note("stopped");
  });
  ASSERT_TRUE(wait_for("sending"));
  stop.set_value();
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
  release.set_value();
  stopped.get();
  EXPECT_EQ(vantelink_fakes::journal().back(), "stopped");
  EXPECT_LE(sends, 2) << "the configuration and at most the frame of the same iteration";
  EXPECT_EQ(count("~H264Encoder"), 1u);
}

TEST_F(StreamThreadTest, SendCallableIsDestroyedWithTheStreamer) {
  const auto held = std::make_shared<int>(0);
  {
    ScreenStreamer streamer(
        1, [held](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return *held == 0; });
    streamer.Start(0, 500, 70, 1);
    ASSERT_TRUE(wait_for("Encode"));
    EXPECT_GT(held.use_count(), 1);
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(StreamThreadTest, WorkerStoppedBeforeItsFirstIterationReleasesEverything) {
  for (int i = 1; i <= 50; ++i) {
    ScreenStreamer streamer(
        1, [](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return true; });
    streamer.Start(0, 1000, 70, 1);
    streamer.Stop();
    EXPECT_EQ(count("~ScreenCapturer"), static_cast<std::size_t>(i));
  }
}

}  // namespace
}  // namespace vlk::agent
