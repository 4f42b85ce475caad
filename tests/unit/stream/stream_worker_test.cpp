// One iteration of the stream after another, on a clock of the test's own.
#include "stream/stream_worker.h"

#include <gtest/gtest.h>

#include <optional>

#include "fakes/fakes.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;

constexpr std::int64_t kMillisecond = 1000000;
constexpr std::int64_t kStart = 50000 * kMillisecond;

struct Sent {
  Msg type;
  unsigned session;
  std::string bytes;
  unsigned char flags;
};

bool fill(CapturedFrame& frame, std::uint32_t width, std::uint32_t height) {
  frame.width = width;
  frame.height = height;
  frame.stride = static_cast<std::int32_t>(width * 4);
  frame.pixels.assign(std::size_t{width} * height * 4, 1);
  return true;
}

class StreamWorkerTest : public testing::Test {
 protected:
  void SetUp() override { vantelink_fakes::reset(); }

  // Duplication runs and has a frame of that size at each call, until `frames_` says otherwise.
  void with_duplication(std::uint32_t width, std::uint32_t height) {
    script().open = [](std::int32_t) { return true; };
    script().left = 10;
    script().top = 20;
    script().width = static_cast<std::int32_t>(width);
    script().height = static_cast<std::int32_t>(height);
    script().acquire = [this, width, height](CapturedFrame& frame) {
      return changing_ && fill(frame, width, height);
    };
  }
  void with_encoder() {
    script().init = [] { return true; };
  }
  StreamWorker& worker() {
    if (!worker_) worker_.emplace(77, send_, clock_, settings_);
    return *worker_;
  }
  void run(int iterations) {
    for (int i = 0; i < iterations; ++i)
      worker().RunIteration();
  }
  Lines configs() const {
    Lines lines;
    for (const Sent& one : sent_) {
      if (one.type == Msg::StreamConfig) lines.push_back(one.bytes);
    }
    return lines;
  }
  std::vector<Sent> frames() const {
    std::vector<Sent> result;
    for (const Sent& one : sent_) {
      if (one.type == Msg::StreamFrame) result.push_back(one);
    }
    return result;
  }
  static std::uint64_t stamp(const Sent& frame) {
    std::uint64_t value = 0;
    for (std::size_t i = 8; i-- > 0;)
      value = value << 8 | static_cast<unsigned char>(frame.bytes[i]);
    return value;
  }

  std::int64_t time_ = kStart;
  std::int64_t encode_time_ = 0;  // what a send takes
  std::vector<std::int64_t> sleeps_;
  bool changing_ = true;
  bool send_result_ = true;
  std::vector<Sent> sent_;
  StreamSettings settings_;
  Clock clock_{[this] { return time_; },
               [this](std::int64_t deadline) {
                 sleeps_.push_back((deadline - time_) / kMillisecond);
                 time_ = deadline;
               }};
  SendCallable send_ = [this](Msg type, unsigned session, const unsigned char* data, std::size_t length,
                              unsigned char flags) {
    sent_.push_back({type, session, {reinterpret_cast<const char*>(data), length}, flags});
    if (type == Msg::StreamFrame) time_ += encode_time_;
    return send_result_;
  };
  std::optional<StreamWorker> worker_;
};

TEST_F(StreamWorkerTest, FirstFrameFollowsItsAnnouncement) {
  with_duplication(640, 480);
  with_encoder();
  run(1);
  EXPECT_EQ(vantelink_fakes::journal(),
            (Lines{"Open 0", "SetActiveMonitorRect 10 20 640 480", "AcquireFrame 66", "Draw 10 20",
                   "Init 640 480 15 6000000", "Encode key"}));
  ASSERT_EQ(sent_.size(), 2u);
  EXPECT_EQ(sent_[0].type, Msg::StreamConfig);
  EXPECT_EQ(sent_[0].bytes, R"({"codec":"h264","w":640,"h":480,"monitor_id":0})");
  EXPECT_EQ(sent_[0].flags, 1);
  EXPECT_EQ(sent_[1].type, Msg::StreamFrame);
  EXPECT_EQ(sent_[1].bytes, std::string(8, '\0') + "h264");
  EXPECT_EQ(sent_[1].flags, 0);
  EXPECT_EQ(sent_[0].session, 77u);
  EXPECT_EQ(sent_[1].session, 77u);
}

TEST_F(StreamWorkerTest, FailedOpenClearsTheInputRectangleAndStreamsByGdiWithARetryEachTime) {
  run(3);
  EXPECT_EQ(vantelink_fakes::journal()[1], "SetActiveMonitorRect 0 0 0 0");
  EXPECT_EQ(count("AcquireFrame 66"), 0u);
  EXPECT_EQ(count("CaptureGdi"), 3u);
  EXPECT_EQ(count("Open 0"), 4u);
  EXPECT_EQ(frames().size(), 3u);
}

TEST_F(StreamWorkerTest, OpenThatSucceedsOnRetryIsUsedFromTheNextIteration) {
  int opens = 0;
  script().open = [&](std::int32_t) { return ++opens > 1; };
  script().acquire = [](CapturedFrame& frame) { return fill(frame, 640, 480); };
  run(2);
  EXPECT_EQ(count("CaptureGdi"), 1u);
  EXPECT_EQ(count("AcquireFrame 66"), 1u);
  EXPECT_EQ(count("Open 0"), 2u);
}

TEST_F(StreamWorkerTest, StillScreenSendsAtOnceAndThenOnceASecond) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  run(1);
  EXPECT_EQ(frames().size(), 1u) << "the first iteration takes a GDI frame at once";
  run(9);
  EXPECT_EQ(frames().size(), 1u);
  run(1);
  EXPECT_EQ(frames().size(), 2u) << "one second after the last";
  EXPECT_EQ(stamp(frames()[1]), 1000000u);
}

TEST_F(StreamWorkerTest, LostDuplicationIsNeverOpenedAgainUntilTheMonitorChanges) {
  with_duplication(640, 480);
  settings_.max_fps = 10;
  run(1);
  changing_ = false;  // what a lost duplication answers from now on
  run(40);
  EXPECT_EQ(count("Open 0"), 1u);
  EXPECT_EQ(count("CaptureGdi"), 4u) << "about one frame a second";
  settings_.monitor_id = 1;
  run(1);
  EXPECT_EQ(count("Open 1"), 1u);
}

struct PaceCase {
  std::int32_t max_fps;
  std::int64_t interval_ms;
};

TEST_F(StreamWorkerTest, PausesForTheRestOfTheInterval) {
  for (const PaceCase& one : {PaceCase{0, 66}, {-5, 66}, {7, 142}, {30, 33}, {1, 1000}, {1000, 1}}) {
    settings_.max_fps = one.max_fps;
    sleeps_.clear();
    run(1);
    ASSERT_EQ(sleeps_.size(), 1u) << one.max_fps;
    EXPECT_EQ(sleeps_[0], one.interval_ms) << one.max_fps;
  }
}

TEST_F(StreamWorkerTest, NeverPausesAboveAThousandFramesASecond) {
  settings_.max_fps = 2000;
  run(5);
  EXPECT_TRUE(sleeps_.empty());
}

TEST_F(StreamWorkerTest, SlowSendShortensThePauseAndALongerOneSkipsIt) {
  settings_.max_fps = 10;
  encode_time_ = 40 * kMillisecond + kMillisecond / 2;
  run(1);
  EXPECT_EQ(sleeps_, (std::vector<std::int64_t>{60})) << "elapsed milliseconds are truncated";
  encode_time_ = 150 * kMillisecond;
  run(1);
  EXPECT_EQ(sleeps_.size(), 1u);
}

TEST_F(StreamWorkerTest, EncoderGetsSettingsUnclamped) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 0;
  settings_.bitrate = -1;
  run(1);
  EXPECT_EQ(count("Init 640 480 0 -1"), 1u);
}

TEST_F(StreamWorkerTest, EncoderThatCannotBeOpenedMeansJpegUntilTheSizeChanges) {
  script().open = [](std::int32_t) { return true; };
  std::uint32_t width = 640;
  script().acquire = [&](CapturedFrame& frame) { return fill(frame, width, 480); };
  run(3);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(configs(), (Lines{R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})"}));
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 3u);
  EXPECT_EQ(count("Shutdown"), 0u) << "a session that failed half way is not shut down";
  with_encoder();
  width = 800;
  run(1);
  EXPECT_EQ(configs().back(), R"({"codec":"h264","w":800,"h":480,"monitor_id":0})");
  EXPECT_EQ(count("Encode key"), 1u);
}

TEST_F(StreamWorkerTest, SizeChangeReopensTheEncoderAndForcesAKeyFrame) {
  script().open = [](std::int32_t) { return true; };
  with_encoder();
  std::uint32_t height = 480;
  script().acquire = [&](CapturedFrame& frame) { return fill(frame, 640, height); };
  run(2);
  height = 400;
  run(1);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(count("Init 640 400 15 6000000"), 1u);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(configs().size(), 2u);
}

TEST_F(StreamWorkerTest, SelectingThePresentMonitorDoesNothing) {
  with_duplication(640, 480);
  run(1);
  settings_.monitor_id = 0;
  run(2);
  EXPECT_EQ(configs().size(), 1u);
  EXPECT_EQ(count("Open 0"), 1u);
}

TEST_F(StreamWorkerTest, MonitorOfTheSameSizeIsAnnouncedAndStartsAnewWithAKeyFrame) {
  with_duplication(640, 480);
  with_encoder();
  run(2);
  settings_.monitor_id = 1;
  run(1);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 2u);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 640 480"), 2u);
  EXPECT_EQ(configs().back(), R"({"codec":"h264","w":640,"h":480,"monitor_id":1})");
}

TEST_F(StreamWorkerTest, MonitorThatCannotBeOpenedKeepsTheOldRectangleButIsNamed) {
  with_duplication(640, 480);
  run(1);
  script().open = [](std::int32_t) { return false; };
  settings_.monitor_id = 99;
  run(1);
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 640 480"), 2u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":8,"h":4,"monitor_id":99})");
}

TEST_F(StreamWorkerTest, KeyFrameOnRequestOnceAndEveryTwoSeconds) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 10;
  run(1);
  EXPECT_EQ(count("Encode key"), 1u);
  run(5);
  EXPECT_EQ(count("Encode key"), 1u);
  settings_.keyframe_requested = true;
  run(2);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_FALSE(settings_.keyframe_requested);
  run(18);
  EXPECT_EQ(count("Encode key"), 2u);
  run(1);
  EXPECT_EQ(count("Encode key"), 3u) << "two seconds after the last";
}

TEST_F(StreamWorkerTest, RequestThatMeetsAForcedFrameForcesTheNextOneToo) {
  with_duplication(640, 480);
  with_encoder();
  settings_.keyframe_requested = true;
  run(3);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(count("Encode"), 1u);
}

TEST_F(StreamWorkerTest, ForcedFrameWithoutOutputIsLeftToTheInterval) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 10;
  int calls = 0;
  script().encode = [&](std::vector<std::uint8_t>& out, bool) {
    if (++calls > 1) out.push_back('x');
    return true;
  };
  run(3);
  EXPECT_EQ(count("Encode key"), 2u) << "the interval is due still, as nothing came out";
  EXPECT_EQ(count("Encode"), 1u);
  EXPECT_EQ(frames().size(), 2u);
}

TEST_F(StreamWorkerTest, FailedEncodingSendsNothingAndTriesAgain) {
  with_duplication(640, 480);
  with_encoder();
  int calls = 0;
  script().encode = [&](std::vector<std::uint8_t>& out, bool) {
    out.push_back('x');
    return ++calls > 2;
  };
  run(3);
  EXPECT_EQ(frames().size(), 1u);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 0u);
}

TEST_F(StreamWorkerTest, FailedJpegSendsNothing) {
  script().jpeg = [] { return std::vector<std::uint8_t>(); };
  run(2);
  EXPECT_TRUE(frames().empty());
  EXPECT_EQ(configs().size(), 1u);
}

TEST_F(StreamWorkerTest, SwitchToJpegShutsTheSessionAndKeepsARequestForTheReturn) {
  with_duplication(640, 480);
  with_encoder();
  run(1);
  settings_.codec = StreamCodec::Mjpeg;
  settings_.keyframe_requested = true;
  run(3);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})");
  EXPECT_TRUE(settings_.keyframe_requested);
  settings_.codec = StreamCodec::H264;
  settings_.keyframe_requested = true;
  run(3);
  EXPECT_EQ(count("Encode key"), 3u) << "the first two after the return";
  EXPECT_EQ(count("Encode"), 1u);
}

TEST_F(StreamWorkerTest, HiddenPointerIsNotDrawn) {
  with_duplication(640, 480);
  settings_.show_cursor = false;
  run(2);
  EXPECT_EQ(count("Draw 10 20"), 0u);
}

TEST_F(StreamWorkerTest, FrameWithoutPixelsIsPassedOver) {
  script().open = [](std::int32_t) { return true; };
  script().acquire = [](CapturedFrame&) { return true; };
  run(2);
  EXPECT_TRUE(sent_.empty());
  EXPECT_EQ(count("Draw 0 0"), 0u);
}

TEST_F(StreamWorkerTest, FailedSendCountsAsSent) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  send_result_ = false;
  run(10);
  EXPECT_EQ(frames().size(), 1u);
}

TEST_F(StreamWorkerTest, StampCountsMicrosecondsFromTheStartInLittleEndian) {
  settings_.max_fps = 7;
  run(3);
  ASSERT_EQ(frames().size(), 3u);
  EXPECT_EQ(stamp(frames()[0]), 0u);
  EXPECT_EQ(stamp(frames()[1]), 142000u);
  EXPECT_EQ(stamp(frames()[2]), 284000u);
}

TEST_F(StreamWorkerTest, TakesDownEncoderThenPointerThenCapture) {
  run(1);
  worker_.reset();
  const Lines lines = vantelink_fakes::journal();
  EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
            (Lines{"~H264Encoder", "~CursorOverlay", "~ScreenCapturer"}));
}

}  // namespace
}  // namespace vlk::agent
