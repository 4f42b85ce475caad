// The stream's thread: start, stop and settings that change under it.
#include "stream/streamer.h"

#include <gtest/gtest.h>

#include "fakes/fakes.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::wait_for;

class StreamerTest : public testing::Test {
 protected:
  void SetUp() override { vantelink_fakes::reset(); }
  SendCallable send_ = [](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return true; };
};

TEST_F(StreamerTest, StartTwiceRunsOneWorkerWithTheFirstSettings) {
  ScreenStreamer streamer(1, send_);
  streamer.Start(3, 100, 70, 1);
  streamer.Start(4, 100, 70, 1);
  ASSERT_TRUE(wait_for("CaptureGdi", 2));
  streamer.Stop();
  EXPECT_EQ(count("Open 4"), 0u);
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, StopWithoutStartAndTwiceIsHarmless) {
  ScreenStreamer streamer(1, send_);
  streamer.Stop();
  streamer.Start(0, 100, 70, 1);
  streamer.Stop();
  streamer.Stop();
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, DestructionEndsTheWorker) {
  {
    ScreenStreamer streamer(1, send_);
    streamer.Start(0, 100, 70, 1);
    ASSERT_TRUE(wait_for("CaptureGdi"));
  }
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
}

TEST_F(StreamerTest, SettingsChangeUnderARunningWorker) {
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

TEST_F(StreamerTest, StartsAndStopsManyTimes) {
  for (int i = 0; i < 200; ++i) {
    ScreenStreamer streamer(1, send_);
    streamer.Start(0, 1000, 70, 1);
  }
  EXPECT_EQ(count("~ScreenCapturer"), count("~H264Encoder"));
}

}  // namespace
}  // namespace vlk::agent
