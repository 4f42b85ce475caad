// The capture of the stream, its pace and its messages, with a clock that the test controls.
#include <string>

#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;
using StreamCaptureTest = RecordingFixture;

TEST_F(StreamCaptureTest, ConfigurationIsSentBeforeTheFirstFrame) {
  with_duplication(640, 480);
  with_encoder();
  Run(1);
  ASSERT_EQ(sent_.size(), 2u);
  EXPECT_EQ(sent_[0].type, Msg::StreamConfig);
  EXPECT_EQ(sent_[0].bytes, R"({"codec":"h264","w":640,"h":480,"monitor_id":0})");
  EXPECT_EQ(sent_[0].flags, 1);
  EXPECT_EQ(sent_[1].type, Msg::StreamFrame);
  EXPECT_EQ(sent_[1].bytes, std::string(8, '\0') + "h264");
  EXPECT_EQ(sent_[1].flags, 0);
  EXPECT_EQ(sent_[0].session, kSession);
  EXPECT_EQ(sent_[1].session, kSession);
}

TEST_F(StreamCaptureTest, DuplicationThatDoesNotOpenClearsTheInputRectangleAndIsRetriedAfterEachGdiFrame) {
  Run(3);
  EXPECT_EQ(vantelink_fakes::journal()[1], "SetActiveMonitorRect 0 0 0 0");
  EXPECT_EQ(count("AcquireFrame 66"), 0u);
  EXPECT_EQ(count("CaptureGdi"), 3u);
  EXPECT_EQ(count("Open 0"), 4u);
  EXPECT_EQ(frames().size(), 3u);
}

TEST_F(StreamCaptureTest, DuplicationThatOpensOnARetryIsUsedFromTheNextIteration) {
  int opens = 0;
  script().open = [&](std::int32_t) { return ++opens > 1; };
  script().acquire = [](CapturedFrame& frame) { return Fill(frame, 640, 480); };
  Run(2);
  EXPECT_EQ(count("CaptureGdi"), 1u);
  EXPECT_EQ(count("AcquireFrame 66"), 1u);
  EXPECT_EQ(count("Open 0"), 2u);
}

TEST_F(StreamCaptureTest, UnchangedScreenIsSentAtTheStartAndThenOnceASecond) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  Run(1);
  EXPECT_EQ(frames().size(), 1u) << "the first iteration captures a frame by GDI at once";
  Run(9);
  EXPECT_EQ(frames().size(), 1u);
  Run(1);
  EXPECT_EQ(frames().size(), 2u) << "one second after the last frame";
  EXPECT_EQ(stamp(frames()[1]), 1000000u);
}

TEST_F(StreamCaptureTest, LostDuplicationIsReopenedOnlyWhenTheMonitorChanges) {
  with_duplication(640, 480);
  settings_.max_fps = 10;
  Run(1);
  changing_ = false;  // from now on the duplication is lost
  Run(40);
  EXPECT_EQ(count("Open 0"), 1u);
  EXPECT_EQ(count("CaptureGdi"), 4u) << "about one frame a second";
  settings_.monitor_id = 1;
  Run(1);
  EXPECT_EQ(count("Open 1"), 1u);
}

struct PaceCase {
  std::int32_t max_fps;
  std::int64_t interval_ms;
};

TEST_F(StreamCaptureTest, WorkerPausesForTheRestOfTheFrameInterval) {
  for (const PaceCase& one : {PaceCase{0, 66}, {-5, 66}, {7, 142}, {30, 33}, {1, 1000}, {1000, 1}}) {
    settings_.max_fps = one.max_fps;
    pauses_.clear();
    Run(1);
    ASSERT_EQ(pauses_.size(), 1u) << one.max_fps;
    EXPECT_EQ(pauses_[0], one.interval_ms) << one.max_fps;
  }
}

TEST_F(StreamCaptureTest, WorkerNeitherPausesNorWaitsForAFrameAboveAThousandFramesASecond) {
  with_duplication(640, 480);
  settings_.max_fps = 2000;
  Run(5);
  changing_ = false;
  Run(5);
  EXPECT_TRUE(pauses_.empty());
  EXPECT_EQ(count("AcquireFrame 0"), 10u);
}

TEST_F(StreamCaptureTest, SlowSendingShortensThePauseAndEvenSlowerSendingSkipsThePause) {
  settings_.max_fps = 10;
  send_time_ = 40 * kMillisecond + kMillisecond / 2;
  Run(1);
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{60})) << "elapsed milliseconds are truncated";
  send_time_ = 150 * kMillisecond;
  Run(1);
  EXPECT_EQ(pauses_.size(), 1u);
}

TEST_F(StreamCaptureTest, SelectingTheCurrentMonitorDoesNothing) {
  with_duplication(640, 480);
  Run(1);
  settings_.monitor_id = 0;
  Run(2);
  EXPECT_EQ(configs().size(), 1u);
  EXPECT_EQ(count("Open 0"), 1u);
}

TEST_F(StreamCaptureTest, SwitchToAMonitorOfTheSameSizeSendsAConfigurationAndAKeyFrame) {
  with_duplication(640, 480);
  with_encoder();
  Run(2);
  settings_.monitor_id = 1;
  Run(1);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 2u);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 640 480"), 2u);
  EXPECT_EQ(configs().back(), R"({"codec":"h264","w":640,"h":480,"monitor_id":1})");
}

TEST_F(StreamCaptureTest, MonitorThatCannotBeOpenedKeepsTheInputRectangleAndIsNamedInTheConfiguration) {
  with_duplication(640, 480);
  Run(1);
  script().open = [](std::int32_t) { return false; };
  settings_.monitor_id = 99;
  Run(1);
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 640 480"), 2u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":8,"h":4,"monitor_id":99})");
}

TEST_F(StreamCaptureTest, HiddenPointerIsNotDrawn) {
  with_duplication(640, 480);
  settings_.show_cursor = false;
  Run(2);
  EXPECT_EQ(count("Draw 10 20"), 0u);
}

TEST_F(StreamCaptureTest, FrameWithoutPixelsIsNotSent) {
  script().open = [](std::int32_t) { return true; };
  script().acquire = [](CapturedFrame&) { return true; };
  Run(2);
  EXPECT_TRUE(sent_.empty());
  EXPECT_EQ(count("Draw 0 0"), 0u);
}

TEST_F(StreamCaptureTest, FrameThatCouldNotBeSentCountsAsSent) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  send_result_ = false;
  Run(10);
  EXPECT_EQ(frames().size(), 1u);
}

TEST_F(StreamCaptureTest, TimeStampOfAFrameIsMicrosecondsFromTheStartInLittleEndian) {
  settings_.max_fps = 7;
  Run(3);
  ASSERT_EQ(frames().size(), 3u);
  EXPECT_EQ(stamp(frames()[0]), 0u);
  EXPECT_EQ(stamp(frames()[1]), 142000u);
  EXPECT_EQ(stamp(frames()[2]), 284000u);
}

TEST_F(StreamCaptureTest, EncoderIsDestroyedBeforeTheCursorOverlayAndTheOverlayBeforeTheCapturer) {
  Run(1);
  worker_.reset();
  const Lines lines = vantelink_fakes::journal();
  EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
            (Lines{"~H264Encoder", "~CursorOverlay", "~ScreenCapturer"}));
}

}  // namespace
}  // namespace vlk::agent
