// The agent's streaming worker on the duplication double, with JPEG frames and, except for the tests of its
// thread, with a clock that the test controls.
#include <windows.h>
#include <objbase.h>
#include <dxgi.h>

#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32/gdiplus_win32.h"
#include "stream/streamer.h"
#include "tests/windows/stream/duplication/desktop_fixture.h"

namespace vlk::agent {
namespace {

constexpr std::int64_t kMillisecond = 1000000;  // nanoseconds
constexpr std::int64_t kSecond = 1000 * kMillisecond;

using Times = std::vector<std::int64_t>;
using Texts = std::vector<std::string>;

std::string config(int width, int height, int monitor = 0) {
  return R"({"codec":"mjpeg","w":)" + std::to_string(width) + R"(,"h":)" + std::to_string(height) +
         R"(,"monitor_id":)" + std::to_string(monitor) + "}";
}

class StrictStream : public test::DesktopDouble {
 protected:
  static void SetUpTestSuite() {
    const Gdiplus::GdiplusStartupInput input;
    ASSERT_EQ(Gdiplus::GdiplusStartup(&gdiplus, &input, nullptr), Gdiplus::Ok);
  }
  static void TearDownTestSuite() { Gdiplus::GdiplusShutdown(gdiplus); }

  void SetUp() override {
    DesktopDouble::SetUp();
    settings_.codec = StreamCodec::Mjpeg;
    settings_.show_cursor = false;
    settings_.max_fps = 10;
  }

  void TearDown() override {
    worker_.reset();
    DesktopDouble::TearDown();
  }

  void Run(int iterations) {
    if (!worker_) worker_.emplace(1, send_, clock_, settings_);
    for (int i = 0; i < iterations; ++i)
      worker_->RunIteration();
  }

  inline static ULONG_PTR gdiplus = 0;
  std::int64_t time_ = 1000 * kSecond;
  int pauses_ = 0;
  StreamSettings settings_;
  Clock clock_{[this] { return time_; },
               [this](std::int64_t deadline) {
                 ++pauses_;
                 time_ = deadline;
               }};
  Texts configs_;
  Times sent_;  // start of the iterations that sent a frame
  SendCallable send_ = [this](Msg type, unsigned, const unsigned char* data, std::size_t length,
                              unsigned char) {
    if (type == Msg::StreamConfig) configs_.emplace_back(reinterpret_cast<const char*>(data), length);
    if (type == Msg::StreamFrame) sent_.push_back(time_);
    return true;
  };
  std::optional<StreamWorker> worker_;
};

TEST_F(StrictStream, KnownLostDuplicationStaysAtOneFrameASecond) {
  Run(1);
  EXPECT_EQ(board_.frames, 1);
  board_.acquire_result = DXGI_ERROR_ACCESS_LOST;
  Run(1);
  board_.acquire_result = 0;
  Run(40);
  EXPECT_EQ(sent_, (Times{1000 * kSecond, 1001 * kSecond, 1002 * kSecond, 1003 * kSecond, 1004 * kSecond}));
  EXPECT_EQ(board_.frames, 1);
  EXPECT_EQ(board_.losses, 1) << "the duplication is not used again";
  EXPECT_EQ(board_.duplications, 1);
  EXPECT_EQ(configs_, (Texts{config(320, 180)}));
}

TEST_F(StrictStream, KnownNewModeLosesTheDuplicationAndTheOldRectangleIsStreamedAtOneFrameASecond) {
  Run(1);
  set_outputs({{100, 50, 640, 480}});
  Run(20);
  EXPECT_EQ(sent_, (Times{1000 * kSecond, 1001 * kSecond, 1002 * kSecond}));
  EXPECT_EQ(board_.duplications, 1);
  EXPECT_EQ(configs_, (Texts{config(320, 180)})) << "the new size is not announced";
  settings_.monitor_id = 1;
  set_outputs({{100, 50, 640, 480}, {0, 0, 200, 100}});
  Run(1);
  EXPECT_EQ(configs_.back(), config(200, 100, 1));
  settings_.monitor_id = 0;
  Run(1);
  EXPECT_EQ(configs_.back(), config(640, 480)) << "selecting another monitor and this one again helps";
}

TEST_F(StrictStream, KnownTurnedMonitorStreamsLyingOnItsSideAndStandsUpAtEachRefreshOfAnUnchangedScreen) {
  set_outputs({{0, 0, 180, 320}});
  board_.outputs[0].rotation = DXGI_MODE_ROTATION_ROTATE270;
  Run(3);
  EXPECT_EQ(configs_, (Texts{config(320, 180)}));
  board_.still = 1;
  time_ += kSecond;
  Run(1);
  board_.still = 0;
  Run(1);
  EXPECT_EQ(configs_, (Texts{config(320, 180), config(180, 320), config(320, 180)}));
}

TEST_F(StrictStream, KnownFifthDuplicatingProgramCopiesTheScreenAndTriesAgainAtEveryFrame) {
  board_.other_programs = 4;
  Run(5);
  EXPECT_EQ(sent_.size(), 5u);
  EXPECT_EQ(board_.factories, 6) << "at the start and after each frame";
  board_.other_programs = 0;
  Run(2);
  EXPECT_EQ(board_.duplications, 1);
  EXPECT_EQ(board_.frames, 1);
}

TEST_F(StrictStream, NothingWaitsAboveAThousandFramesASecond) {
  settings_.max_fps = 2000;
  board_.still = 1;
  Run(1);
  board_.wait = -1;
  Run(100);
  EXPECT_EQ(board_.wait, 0);
  EXPECT_EQ(board_.time_outs, 101);
  EXPECT_EQ(pauses_, 0);
}

TEST_F(StrictStream, WorkerThreadIsInTheMultiThreadedApartment) {
  struct Apartment {
    HRESULT result;
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;
  };
  std::promise<Apartment> seen;
  bool first = true;
  ScreenStreamer streamer(1, [&](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) {
    if (!std::exchange(first, false)) return true;
    Apartment apartment = {};
    apartment.result = CoGetApartmentType(&apartment.type, &apartment.qualifier);
    seen.set_value(apartment);
    return true;
  });
  streamer.Start(0, 30, 70, 0);
  const Apartment apartment = seen.get_future().get();
  streamer.Stop();
  EXPECT_EQ(apartment.result, S_OK);
  EXPECT_EQ(apartment.type, APTTYPE_MTA);
  EXPECT_EQ(apartment.qualifier, APTTYPEQUALIFIER_NONE) << "the thread itself has entered the apartment";
}

}  // namespace
}  // namespace vlk::agent
