// One iteration of the stream after another, on a clock of the test's own.
#include "stream/stream_worker.h"

#include <string>

#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;

struct Sent {
  Msg type;
  unsigned session;
  std::string bytes;
  unsigned char flags;
};

class StreamWorkerTest : public WorkerFixture {
 protected:
  // Duplication runs and has a frame of that size at each call, unless `changing_` says otherwise.
  void with_duplication(std::uint32_t width, std::uint32_t height) {
    script().open = [](std::int32_t) { return true; };
    script().left = 10;
    script().top = 20;
    script().width = static_cast<std::int32_t>(width);
    script().height = static_cast<std::int32_t>(height);
    script().acquire = [this, width, height](CapturedFrame& frame) {
      return changing_ && Fill(frame, width, height);
    };
  }
  void with_encoder() {
    script().init = [] { return true; };
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

  StreamWorkerTest() {
    send_ = [this](Msg type, unsigned session, const unsigned char* data, std::size_t length,
                   unsigned char flags) {
      sent_.push_back({type, session, {reinterpret_cast<const char*>(data), length}, flags});
      if (type == Msg::StreamFrame) time_ += send_time_;
      return send_result_;
    };
  }

  std::int64_t send_time_ = 0;  // what sending a frame takes, in nanoseconds
  bool changing_ = true;
  bool send_result_ = true;
  std::vector<Sent> sent_;
};

TEST_F(StreamWorkerTest, FirstFrameFollowsItsAnnouncement) {
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

TEST_F(StreamWorkerTest, FailedOpenClearsTheInputRectangleAndStreamsByGdiWithARetryEachTime) {
  Run(3);
  EXPECT_EQ(vantelink_fakes::journal()[1], "SetActiveMonitorRect 0 0 0 0");
  EXPECT_EQ(count("AcquireFrame 66"), 0u);
  EXPECT_EQ(count("CaptureGdi"), 3u);
  EXPECT_EQ(count("Open 0"), 4u);
  EXPECT_EQ(frames().size(), 3u);
}

TEST_F(StreamWorkerTest, OpenThatSucceedsOnRetryIsUsedFromTheNextIteration) {
  int opens = 0;
  script().open = [&](std::int32_t) { return ++opens > 1; };
  script().acquire = [](CapturedFrame& frame) { return Fill(frame, 640, 480); };
  Run(2);
  EXPECT_EQ(count("CaptureGdi"), 1u);
  EXPECT_EQ(count("AcquireFrame 66"), 1u);
  EXPECT_EQ(count("Open 0"), 2u);
}

TEST_F(StreamWorkerTest, StillScreenSendsAtOnceAndThenOnceASecond) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  Run(1);
  EXPECT_EQ(frames().size(), 1u) << "the first iteration takes a GDI frame at once";
  Run(9);
  EXPECT_EQ(frames().size(), 1u);
  Run(1);
  EXPECT_EQ(frames().size(), 2u) << "one second after the last";
  EXPECT_EQ(stamp(frames()[1]), 1000000u);
}

TEST_F(StreamWorkerTest, LostDuplicationIsNeverOpenedAgainUntilTheMonitorChanges) {
  with_duplication(640, 480);
  settings_.max_fps = 10;
  Run(1);
  changing_ = false;  // what a lost duplication answers from now on
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

TEST_F(StreamWorkerTest, PausesForTheRestOfTheInterval) {
  for (const PaceCase& one : {PaceCase{0, 66}, {-5, 66}, {7, 142}, {30, 33}, {1, 1000}, {1000, 1}}) {
    settings_.max_fps = one.max_fps;
    pauses_.clear();
    Run(1);
    ASSERT_EQ(pauses_.size(), 1u) << one.max_fps;
    EXPECT_EQ(pauses_[0], one.interval_ms) << one.max_fps;
  }
}

TEST_F(StreamWorkerTest, NeverPausesAboveAThousandFramesASecond) {
  settings_.max_fps = 2000;
  Run(5);
  EXPECT_TRUE(pauses_.empty());
}

TEST_F(StreamWorkerTest, SlowSendShortensThePauseAndALongerOneSkipsIt) {
  settings_.max_fps = 10;
  send_time_ = 40 * kMillisecond + kMillisecond / 2;
  Run(1);
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{60})) << "elapsed milliseconds are truncated";
  send_time_ = 150 * kMillisecond;
  Run(1);
  EXPECT_EQ(pauses_.size(), 1u);
}

TEST_F(StreamWorkerTest, EncoderGetsSettingsUnclamped) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 0;
  settings_.bitrate = -1;
  Run(1);
  EXPECT_EQ(count("Init 640 480 0 -1"), 1u);
}

TEST_F(StreamWorkerTest, EncoderThatCannotBeOpenedMeansJpegUntilTheSizeChanges) {
  script().open = [](std::int32_t) { return true; };
  std::uint32_t width = 640;
  script().acquire = [&](CapturedFrame& frame) { return Fill(frame, width, 480); };
  Run(3);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(configs(), (Lines{R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})"}));
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 3u);
  EXPECT_EQ(count("Shutdown"), 0u) << "a session that failed half way is not shut down";
  with_encoder();
  width = 800;
  Run(1);
  EXPECT_EQ(configs().back(), R"({"codec":"h264","w":800,"h":480,"monitor_id":0})");
  EXPECT_EQ(count("Encode key"), 1u);
}

TEST_F(StreamWorkerTest, SizeChangeReopensTheEncoderAndForcesAKeyFrame) {
  script().open = [](std::int32_t) { return true; };
  with_encoder();
  std::uint32_t height = 480;
  script().acquire = [&](CapturedFrame& frame) { return Fill(frame, 640, height); };
  Run(2);
  height = 400;
  Run(1);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(count("Init 640 400 15 6000000"), 1u);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(configs().size(), 2u);
}

TEST_F(StreamWorkerTest, SelectingThePresentMonitorDoesNothing) {
  with_duplication(640, 480);
  Run(1);
  settings_.monitor_id = 0;
  Run(2);
  EXPECT_EQ(configs().size(), 1u);
  EXPECT_EQ(count("Open 0"), 1u);
}

TEST_F(StreamWorkerTest, MonitorOfTheSameSizeIsAnnouncedAndStartsAnewWithAKeyFrame) {
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

TEST_F(StreamWorkerTest, MonitorThatCannotBeOpenedKeepsTheOldRectangleButIsNamed) {
  with_duplication(640, 480);
  Run(1);
  script().open = [](std::int32_t) { return false; };
  settings_.monitor_id = 99;
  Run(1);
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 640 480"), 2u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":8,"h":4,"monitor_id":99})");
}

TEST_F(StreamWorkerTest, KeyFrameOnRequestOnceAndEveryTwoSeconds) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 10;
  Run(1);
  EXPECT_EQ(count("Encode key"), 1u);
  Run(5);
  EXPECT_EQ(count("Encode key"), 1u);
  settings_.keyframe_requested = true;
  Run(2);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_FALSE(settings_.keyframe_requested);
  Run(18);
  EXPECT_EQ(count("Encode key"), 2u);
  Run(1);
  EXPECT_EQ(count("Encode key"), 3u) << "two seconds after the last";
}

TEST_F(StreamWorkerTest, RequestThatMeetsAForcedFrameForcesTheNextOneToo) {
  with_duplication(640, 480);
  with_encoder();
  settings_.keyframe_requested = true;
  Run(3);
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
  Run(3);
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
  Run(3);
  EXPECT_EQ(frames().size(), 1u);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 0u);
}

TEST_F(StreamWorkerTest, FailedJpegSendsNothing) {
  script().jpeg = [] { return std::vector<std::uint8_t>(); };
  Run(2);
  EXPECT_TRUE(frames().empty());
  EXPECT_EQ(configs().size(), 1u);
}

TEST_F(StreamWorkerTest, SwitchToJpegShutsTheSessionAndKeepsARequestForTheReturn) {
  with_duplication(640, 480);
  with_encoder();
  Run(1);
  settings_.codec = StreamCodec::Mjpeg;
  settings_.keyframe_requested = true;
  Run(3);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})");
  EXPECT_TRUE(settings_.keyframe_requested);
  settings_.codec = StreamCodec::H264;
  settings_.keyframe_requested = true;
  Run(3);
  EXPECT_EQ(count("Encode key"), 3u) << "the first two after the return";
  EXPECT_EQ(count("Encode"), 1u);
}

TEST_F(StreamWorkerTest, HiddenPointerIsNotDrawn) {
  with_duplication(640, 480);
  settings_.show_cursor = false;
  Run(2);
  EXPECT_EQ(count("Draw 10 20"), 0u);
}

TEST_F(StreamWorkerTest, FrameWithoutPixelsIsPassedOver) {
  script().open = [](std::int32_t) { return true; };
  script().acquire = [](CapturedFrame&) { return true; };
  Run(2);
  EXPECT_TRUE(sent_.empty());
  EXPECT_EQ(count("Draw 0 0"), 0u);
}

TEST_F(StreamWorkerTest, FailedSendCountsAsSent) {
  with_duplication(640, 480);
  changing_ = false;
  settings_.max_fps = 10;
  send_result_ = false;
  Run(10);
  EXPECT_EQ(frames().size(), 1u);
}

TEST_F(StreamWorkerTest, StampCountsMicrosecondsFromTheStartInLittleEndian) {
  settings_.max_fps = 7;
  Run(3);
  ASSERT_EQ(frames().size(), 3u);
  EXPECT_EQ(stamp(frames()[0]), 0u);
  EXPECT_EQ(stamp(frames()[1]), 142000u);
  EXPECT_EQ(stamp(frames()[2]), 284000u);
}

TEST_F(StreamWorkerTest, TakesDownEncoderThenPointerThenCapture) {
  Run(1);
  worker_.reset();
  const Lines lines = vantelink_fakes::journal();
  EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
            (Lines{"~H264Encoder", "~CursorOverlay", "~ScreenCapturer"}));
}

}  // namespace
}  // namespace vlk::agent
