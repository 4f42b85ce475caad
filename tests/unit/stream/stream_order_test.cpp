// The order of the steps of an iteration, the moment at which each setting is read, and exact times.
#include <algorithm>
#include <string>
#include <utility>

#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::journal;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;
using StreamOrderTest = JournalFixture;

TEST_F(StreamOrderTest, IterationRunsItsStepsInOrder) {
  EXPECT_EQ(JournalOf(1),
            (Lines{"Open 0", "SetActiveMonitorRect 10 20 64 48", "AcquireFrame 66", "Draw 10 20",
                   "Init 64 48 15 6000000", R"(send {"codec":"h264","w":64,"h":48,"monitor_id":0})",
                   "Encode key", "send frame"}));
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66", "Draw 10 20", "Encode", "send frame"}));
}

TEST_F(StreamOrderTest, MonitorChangeSetsTheInputRectangleAndClosesTheEncoderBeforeTheNextFrame) {
  Run(1);
  settings_.monitor_id = 2;
  EXPECT_EQ(JournalOf(1),
            (Lines{"Open 2", "SetActiveMonitorRect 10 20 64 48", "Shutdown", "AcquireFrame 66", "Draw 10 20",
                   "Init 64 48 15 6000000", R"(send {"codec":"h264","w":64,"h":48,"monitor_id":2})",
                   "Encode key", "send frame"}));
}

TEST_F(StreamOrderTest, RetryOfOpeningDuplicationFollowsTheGdiCaptureAndKeepsTheInputRectangle) {
  script().open = [](std::int32_t) { return false; };
  Run(1);
  script().open = [](std::int32_t) { return true; };
  EXPECT_EQ(JournalOf(1), (Lines{"CaptureGdi", "Open 0", "Draw 10 20", "Encode", "send frame"}));
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 64 48"), 0u);
}

TEST_F(StreamOrderTest, NegativeMonitorNumberIsPassedOnUnchanged) {
  script().open = [](std::int32_t index) { return index >= 0; };
  script().init = nullptr;
  settings_.monitor_id = -3;
  Run(1);
  EXPECT_EQ(count("Open -3"), 2u) << "at the start, and once more after the GDI capture";
  EXPECT_EQ(count(R"(send {"codec":"mjpeg","w":8,"h":4,"monitor_id":-3})"), 1u);
}

TEST_F(StreamOrderTest, CodecAndMonitorAreReadBeforeTheCapture) {
  Run(1);
  in_acquire_ = [this] {
    settings_.codec = StreamCodec::Mjpeg;
    settings_.monitor_id = 1;
  };
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66", "Draw 10 20", "Encode", "send frame"}));
  in_acquire_ = nullptr;
  EXPECT_EQ(JournalOf(1), (Lines{"Open 1", "SetActiveMonitorRect 10 20 64 48", "Shutdown", "AcquireFrame 66",
                                 "Draw 10 20", R"(send {"codec":"mjpeg","w":64,"h":48,"monitor_id":1})",
                                 "EncodeJpeg 64 48 256 70", "send frame"}));
}

TEST_F(StreamOrderTest, EncoderUsesSettingsReadAfterTheCaptureButThePauseUsesEarlierSettings) {
  in_acquire_ = [this] {
    settings_.max_fps = 5;
    settings_.bitrate = 123;
  };
  Run(1);
  EXPECT_EQ(count("Init 64 48 5 123"), 1u);
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{66}));
}

TEST_F(StreamOrderTest, PointerQualityAndKeyFrameRequestAreReadAfterTheCapture) {
  Run(1);
  in_acquire_ = [this] {
    settings_.show_cursor = false;
    settings_.keyframe_requested = true;
  };
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66", "Encode key", "send frame"}));
  settings_.codec = StreamCodec::Mjpeg;
  in_acquire_ = [this] { settings_.quality = 31; };
  EXPECT_EQ(JournalOf(1).back(), "send frame");
  EXPECT_EQ(count("EncodeJpeg 64 48 256 31"), 1u);
}

TEST_F(StreamOrderTest, EachIterationReusesTheMemoryOfTheLastFrame) {
  const std::uint8_t* memory = nullptr;
  script().acquire = [&](CapturedFrame& frame) {
    EXPECT_TRUE(frame.pixels.empty());
    EXPECT_EQ(frame.width, 0u);
    if (memory != nullptr) {
      EXPECT_EQ(frame.pixels.data(), memory);
    }
    Fill(frame, 64, 48);
    memory = frame.pixels.data();
    return true;
  };
  Run(3);
  EXPECT_EQ(count("send frame"), 3u);
}

TEST_F(StreamOrderTest, PauseIsShorterByTheTimeSpentWaitingForAFrame) {
  in_acquire_ = [this] { time_ += 66 * kMillisecond; };
  Run(3);
  EXPECT_TRUE(pauses_.empty());
}

TEST_F(StreamOrderTest, SizeChangesBetweenDuplicationAndGdiReopenTheEncoder) {
  Run(1);
  script().acquire = [](CapturedFrame&) { return false; };
  time_ += 1000 * kMillisecond;
  EXPECT_EQ(JournalOf(1),
            (Lines{"AcquireFrame 66", "CaptureGdi", "Draw 10 20", "Shutdown", "Init 8 4 15 6000000",
                   R"(send {"codec":"h264","w":8,"h":4,"monitor_id":0})", "Encode key", "send frame"}));
}

TEST_F(StreamOrderTest, EveryFrameIsEncodedWithTheSizeThatTheEncoderWasOpenedFor) {
  std::uint32_t width = 64, height = 48;
  script().acquire = [&](CapturedFrame& frame) { return Fill(frame, width, height); };
  Run(2);
  width = 80;
  Run(2);
  height = 60;
  Run(2);
  std::swap(width, height);
  Run(2);
  script().acquire = [](CapturedFrame&) { return false; };
  time_ += 1000 * kMillisecond;
  Run(1);
  const Lines lines = journal();
  EXPECT_EQ(
      std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.starts_with("Init "); }),
      5);
  EXPECT_EQ(count("Encode key") + count("Encode"), 9u) << "no frame has another size";
}

TEST_F(StreamOrderTest, UnchangedScreenIsSentAgainAfterExactlyOneSecond) {
  Run(1);
  const std::int64_t sent_at = time_ - 66 * kMillisecond;  // the iteration's start
  script().acquire = [](CapturedFrame&) { return false; };
  time_ = sent_at + 1000 * kMillisecond - 1;
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66"}));
  time_ = sent_at + 1000 * kMillisecond;
  EXPECT_EQ(JournalOf(1).at(1), "CaptureGdi");
}

TEST_F(StreamOrderTest, UnchangedScreenIsSentAgainOneSecondAfterTheStartOfTheIterationThatSentTheLastFrame) {
  Run(1);
  settings_.max_fps = 1;
  script().encode = [this](std::vector<std::uint8_t>& out, bool) {
    time_ += 900 * kMillisecond;
    out.push_back('x');
    return true;
  };
  Run(1);
  script().acquire = [](CapturedFrame&) { return false; };
  EXPECT_EQ(JournalOf(1).at(1), "CaptureGdi")
      << "one second after the start of the iteration that sent a frame";
}

TEST_F(StreamOrderTest, KeyFrameIsDueAfterExactlyTwoSeconds) {
  Run(1);
  const std::int64_t keyed_at = time_ - 66 * kMillisecond;
  time_ = keyed_at + 2000 * kMillisecond - 1;
  EXPECT_EQ(JournalOf(1).at(2), "Encode");
  time_ = keyed_at + 2000 * kMillisecond;
  EXPECT_EQ(JournalOf(1).at(2), "Encode key");
}

TEST_F(StreamOrderTest, TimeStampOfAFrameIsTruncatedToMicroseconds) {
  Run(1);
  const std::int64_t start = time_ - 66 * kMillisecond;
  time_ = start + 0x0012030405060708 * 1000 + 999;
  Run(1);
  EXPECT_EQ(last_frame_.substr(0, 8), std::string("\x08\x07\x06\x05\x04\x03\x12\x00", 8));
  EXPECT_EQ(last_frame_.substr(8), "h264");
}

}  // namespace
}  // namespace vlk::agent
