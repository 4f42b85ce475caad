// The stream when things fail or change in the middle of an iteration: which reading of a setting counts, the
// order of effects across modules, and every operation failing once.
#include <algorithm>
#include <future>
#include <memory>
#include <string>

#include "stream/streamer.h"
#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::journal;
using vantelink_fakes::note;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;

// Sent messages go into the journal too.
class StreamFaultsTest : public WorkerFixture {
 protected:
  void SetUp() override {
    WorkerFixture::SetUp();
    script().open = [](std::int32_t) { return true; };
    script().left = 10;
    script().top = 20;
    script().width = 64;
    script().height = 48;
    script().init = [] { return true; };
    script().acquire = [this](CapturedFrame& frame) {
      if (in_acquire_) in_acquire_();
      return Fill(frame, 64, 48);
    };
  }

  // What the next iterations do, and nothing from before.
  Lines JournalOf(int iterations) {
    const std::size_t before = journal().size();
    Run(iterations);
    const Lines lines = journal();
    return Lines(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end());
  }

  StreamFaultsTest() {
    send_ = [this](Msg type, unsigned session, const unsigned char* data, std::size_t length, unsigned char) {
      EXPECT_EQ(session, kSession);
      const std::string bytes(reinterpret_cast<const char*>(data), length);
      if (type == Msg::StreamFrame) last_frame_ = bytes;
      note(type == Msg::StreamFrame ? "send frame" : "send " + bytes);
      return true;
    };
  }

  std::function<void()> in_acquire_;
  std::string last_frame_;
};

TEST_F(StreamFaultsTest, AnIterationTakesItsStepsInOrder) {
  EXPECT_EQ(JournalOf(1),
            (Lines{"Open 0", "SetActiveMonitorRect 10 20 64 48", "AcquireFrame 66", "Draw 10 20",
                   "Init 64 48 15 6000000", R"(send {"codec":"h264","w":64,"h":48,"monitor_id":0})",
                   "Encode key", "send frame"}));
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66", "Draw 10 20", "Encode", "send frame"}));
}

TEST_F(StreamFaultsTest, AMonitorChangeOpensMapsInputAndEndsTheSessionBeforeTheFrame) {
  Run(1);
  settings_.monitor_id = 2;
  EXPECT_EQ(JournalOf(1),
            (Lines{"Open 2", "SetActiveMonitorRect 10 20 64 48", "Shutdown", "AcquireFrame 66", "Draw 10 20",
                   "Init 64 48 15 6000000", R"(send {"codec":"h264","w":64,"h":48,"monitor_id":2})",
                   "Encode key", "send frame"}));
}

TEST_F(StreamFaultsTest, ARetriedOpenComesAfterTheCopyMovesThePointerAndLeavesInputAlone) {
  script().open = [](std::int32_t) { return false; };
  Run(1);
  script().open = [](std::int32_t) { return true; };
  EXPECT_EQ(JournalOf(1), (Lines{"CaptureGdi", "Open 0", "Draw 10 20", "Encode", "send frame"}));
  EXPECT_EQ(count("SetActiveMonitorRect 10 20 64 48"), 0u);
}

TEST_F(StreamFaultsTest, NegativeMonitorIsAskedForAndNamedAsItIs) {
  script().open = [](std::int32_t index) { return index >= 0; };
  script().init = nullptr;
  settings_.monitor_id = -3;
  Run(1);
  EXPECT_EQ(count("Open -3"), 2u) << "at the start, and once more after the copy";
  EXPECT_EQ(count(R"(send {"codec":"mjpeg","w":8,"h":4,"monitor_id":-3})"), 1u);
}

TEST_F(StreamFaultsTest, CodecAndMonitorAreReadBeforeTheCaptureAndChangeTheNextIteration) {
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

TEST_F(StreamFaultsTest, EncoderIsOpenedWithTheValuesOfThatMomentButThePauseKeepsItsOwn) {
  in_acquire_ = [this] {
    settings_.max_fps = 5;
    settings_.bitrate = 123;
  };
  Run(1);
  EXPECT_EQ(count("Init 64 48 5 123"), 1u);
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{66}));
}

TEST_F(StreamFaultsTest, PointerQualityAndKeyFrameRequestAreReadAfterTheCapture) {
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

TEST_F(StreamFaultsTest, EachIterationStartsWithAnEmptyFrameInTheLastOnesMemory) {
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

TEST_F(StreamFaultsTest, TimeSpentWaitingForAFrameIsNotPausedAgain) {
  in_acquire_ = [this] { time_ += 66 * kMillisecond; };
  Run(3);
  EXPECT_TRUE(pauses_.empty());
}

TEST_F(StreamFaultsTest, ThePictureOfEitherSourceCountsAsANewSize) {
  Run(1);
  script().acquire = [](CapturedFrame&) { return false; };
  time_ += 1000 * kMillisecond;
  EXPECT_EQ(JournalOf(1),
            (Lines{"AcquireFrame 66", "CaptureGdi", "Draw 10 20", "Shutdown", "Init 8 4 15 6000000",
                   R"(send {"codec":"h264","w":8,"h":4,"monitor_id":0})", "Encode key", "send frame"}));
}

TEST_F(StreamFaultsTest, AFrameThatIsOneNanosecondShortOfASecondOldIsNotRefreshed) {
  Run(1);
  const std::int64_t sent_at = time_ - 66 * kMillisecond;  // the iteration's start
  script().acquire = [](CapturedFrame&) { return false; };
  time_ = sent_at + 1000 * kMillisecond - 1;
  EXPECT_EQ(JournalOf(1), (Lines{"AcquireFrame 66"}));
  time_ = sent_at + 1000 * kMillisecond;
  EXPECT_EQ(JournalOf(1).at(1), "CaptureGdi");
}

TEST_F(StreamFaultsTest, RefreshCountsFromTheIterationThatSentNotFromTheSendsEnd) {
  Run(1);
  settings_.max_fps = 1;
  script().encode = [this](std::vector<std::uint8_t>& out, bool) {
    time_ += 900 * kMillisecond;
    out.push_back('x');
    return true;
  };
  Run(1);
  script().acquire = [](CapturedFrame&) { return false; };
  EXPECT_EQ(JournalOf(1).at(1), "CaptureGdi") << "one second after the start of the iteration that sent";
}

TEST_F(StreamFaultsTest, KeyFrameIsDueAtTwoSecondsToTheNanosecond) {
  Run(1);
  const std::int64_t keyed_at = time_ - 66 * kMillisecond;
  time_ = keyed_at + 2000 * kMillisecond - 1;
  EXPECT_EQ(JournalOf(1).at(2), "Encode");
  time_ = keyed_at + 2000 * kMillisecond;
  EXPECT_EQ(JournalOf(1).at(2), "Encode key");
}

TEST_F(StreamFaultsTest, StampIsTruncatedToMicrosecondsAndLittleEndian) {
  Run(1);
  const std::int64_t start = time_ - 66 * kMillisecond;
  time_ = start + 0x0012030405060708 * 1000 + 999;
  Run(1);
  EXPECT_EQ(last_frame_.substr(0, 8), std::string("\x08\x07\x06\x05\x04\x03\x12\x00", 8));
  EXPECT_EQ(last_frame_.substr(8), "h264");
}

// Follows the journal and tells what must hold whatever fails.
void ExpectConsistent(const Lines& lines, int failing) {
  bool open = false, announced = false;
  for (const std::string& line : lines) {
    if (line.starts_with("Init ")) {
      EXPECT_FALSE(open) << "a session was opened over another, failing call " << failing;
    } else if (line == "opened") {
      open = true;
    } else if (line == "Shutdown") {
      EXPECT_TRUE(open) << "a session that is not open was ended, failing call " << failing;
      open = false;
    } else if (line.starts_with("Encode") && !line.starts_with("EncodeJpeg")) {
      EXPECT_TRUE(open) << "encoded without a session, failing call " << failing;
    } else if (line.starts_with("send {")) {
      EXPECT_EQ(line.find("h264") != std::string::npos, open) << failing;
      announced = true;
    } else if (line == "send frame") {
      EXPECT_TRUE(announced) << failing;
    }
  }
}

TEST_F(StreamFaultsTest, AnyOneFailureLeavesTheStreamConsistentAndRunning) {
  for (int failing = 1;; ++failing) {
    worker_.reset();
    SetUp();
    settings_.monitor_id = 0;
    settings_.codec = StreamCodec::H264;
    int calls = 0;
    const auto works = [&calls, failing] { return ++calls != failing; };
    std::uint32_t width = 64;
    script().open = [&](std::int32_t) { return works(); };
    script().acquire = [&](CapturedFrame& frame) { return works() && Fill(frame, width, 48); };
    script().capture_gdi = [&](CapturedFrame& frame) { return works() && Fill(frame, 8, 4); };
    script().init = [&] {
      if (!works()) return false;
      note("opened");
      return true;
    };
    script().encode = [&](std::vector<std::uint8_t>& out, bool) {
      out.push_back('x');
      return works();
    };
    script().jpeg = [&] { return std::vector<std::uint8_t>(works() ? 1 : 0); };
    const SendCallable sender = send_;
    send_ = [&](Msg type, unsigned session, const unsigned char* data, std::size_t length,
                unsigned char flags) { return sender(type, session, data, length, flags) && works(); };

    Run(2);
    settings_.monitor_id = 1;
    Run(2);
    settings_.codec = StreamCodec::Mjpeg;
    Run(2);
    width = 80;
    Run(2);
    settings_.codec = StreamCodec::H264;
    settings_.keyframe_requested = true;
    Run(2);
    time_ += 3000 * kMillisecond;
    const Lines tail = JournalOf(3);
    send_ = sender;

    ExpectConsistent(journal(), failing);
    EXPECT_GE(std::count(tail.begin(), tail.end(), "send frame"), 2) << failing;
    if (calls < failing) break;
    ASSERT_LT(failing, 500) << "the walk must come to an end";
  }
  worker_.reset();
  EXPECT_EQ(count("~H264Encoder"), 1u);
}

class StreamThreadTest : public testing::Test {
 protected:
  void SetUp() override {
    vantelink_fakes::reset();
    script().init = [] { return true; };
  }
};

TEST_F(StreamThreadTest, EveryNameButTheExactOneAsksForH264) {
  const SendCallable send = [](Msg type, unsigned, const unsigned char* data, std::size_t length,
                               unsigned char) {
    if (type == Msg::StreamConfig) note(std::string(reinterpret_cast<const char*>(data), length));
    return true;
  };
  ScreenStreamer streamer(1, send);
  streamer.Start(0, 500, 70, 1);
  ASSERT_TRUE(vantelink_fakes::wait_for(R"({"codec":"h264","w":8,"h":4,"monitor_id":0})"));
  std::size_t turns = 0;
  for (const std::string& name : {std::string("h264"), std::string("H264"), std::string(),
                                  std::string("MJPEG"), std::string("mjpeg "), std::string("mjpeg\0", 6)}) {
    ++turns;
    streamer.SetCodec("mjpeg");
    ASSERT_TRUE(vantelink_fakes::wait_for(R"({"codec":"mjpeg","w":8,"h":4,"monitor_id":0})", turns)) << name;
    streamer.SetCodec(name);
    ASSERT_TRUE(vantelink_fakes::wait_for(R"({"codec":"h264","w":8,"h":4,"monitor_id":0})", turns + 1))
        << name;
  }
}

TEST_F(StreamThreadTest, StopWaitsForTheSendInProgressAndNothingFollowsIt) {
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::atomic<int> sends{0};
  ScreenStreamer streamer(1, [&](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) {
    note("sending");
    ++sends;
    released.wait();
    note("sent");
    return false;
  });
  streamer.Start(0, 500, 70, 1);
  ASSERT_TRUE(vantelink_fakes::wait_for("sending"));
  auto stopped = std::async(std::launch::async, [&] {
    streamer.Stop();
    note("stopped");
  });
  EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
  release.set_value();
  stopped.get();
  EXPECT_EQ(journal().back(), "stopped");
  const int sends_at_stop = sends;
  EXPECT_LE(sends_at_stop, 2) << "the announcement and at most the frame of the same iteration";
  EXPECT_EQ(count("~H264Encoder"), 1u);
}

TEST_F(StreamThreadTest, TheSendCallableGoesWithTheStreamer) {
  const auto held = std::make_shared<int>(0);
  {
    ScreenStreamer streamer(
        1, [held](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return *held == 0; });
    streamer.Start(0, 500, 70, 1);
    ASSERT_TRUE(vantelink_fakes::wait_for("Encode"));
    EXPECT_GT(held.use_count(), 1);
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(StreamThreadTest, AWorkerThatWasStoppedBeforeItsFirstIterationStillTearsDown) {
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
