// The agent's capture on a double that is as strict as Windows. The fixture fails each test that makes a
// forbidden call or leaves something open.
#include "stream/capture/capture.h"

#include <windows.h>
#include <dxgi.h>

#include "tests/windows/stream/duplication/desktop_fixture.h"
#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::debug_log;
using Cell = vantelink_doubles::Cell;
using Board = vantelink_doubles::DesktopBoard;

constexpr std::uint32_t kPatience = 1000;  // milliseconds

class StrictCapture : public test::DesktopDouble {
 protected:
  void SetUp() override {
    test::remove_debug_log();
    DesktopDouble::SetUp();
  }

  void TearDown() override {
    DesktopDouble::TearDown();
    test::remove_debug_log();
  }

  // Acquires a frame, which must show the desktop's last picture.
  void ExpectPicture(ScreenCapturer& capturer, std::uint32_t width, std::uint32_t height,
                     std::uint32_t place = 0) {
    CapturedFrame frame;
    ASSERT_TRUE(capturer.AcquireFrame(frame, kPatience));
    EXPECT_EQ(frame.width, width);
    EXPECT_EQ(frame.height, height);
    EXPECT_TRUE(frame.pixels == picture(width, height, place));
  }
};

TEST_F(StrictCapture, MakesNoForbiddenCallInAnyState) {
  set_outputs({{0, 0, 320, 180}, {320, 0, 200, 100}});
  ScreenCapturer capturer;
  CapturedFrame frame;
  ASSERT_TRUE(capturer.Open(0));
  for (int i = 0; i < 3; ++i)
    ExpectPicture(capturer, 320, 180);
  board_.still = 1;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 1));
  EXPECT_FALSE(capturer.AcquireFrame(frame, 1));
  board_.still = 0;
  ExpectPicture(capturer, 320, 180);
  board_.width = 160;
  ExpectPicture(capturer, 160, 180);
  board_.width = 0;
  ASSERT_TRUE(capturer.Open(1)) << "while a frame is held";
  ExpectPicture(capturer, 200, 100, 1);
  EXPECT_EQ(board_.device_adapter, 1);
  capturer.Close();
  EXPECT_EQ(board_.live, 0);
  ASSERT_TRUE(capturer.Open(0));
  ExpectPicture(capturer, 320, 180);
}

TEST_F(StrictCapture, OldDuplicationIsReleasedBeforeTheOutputIsDuplicatedAgain) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  ASSERT_TRUE(capturer.Open(0)) << "no frame is held";
  ExpectPicture(capturer, 320, 180);
  ASSERT_TRUE(capturer.Open(0)) << "a frame is held";
  ExpectPicture(capturer, 320, 180);
  board_.acquire_result = DXGI_ERROR_ACCESS_LOST;
  CapturedFrame frame;
  EXPECT_FALSE(capturer.AcquireFrame(frame, kPatience));
  board_.acquire_result = 0;
  ASSERT_TRUE(capturer.Open(0)) << "the duplication is lost";
  ExpectPicture(capturer, 320, 180);
}

TEST_F(StrictCapture, MakesNoForbiddenCallAfterAFailureOfWindows) {
  const struct {
    Cell Board::*result;
    HRESULT failure;
    bool opens;
  } rows[] = {
      {&Board::factory_result, E_FAIL, false},
      {&Board::device_result, DXGI_ERROR_UNSUPPORTED, false},
      {&Board::output1_result, E_NOINTERFACE, false},
      {&Board::duplicate_result, E_ACCESSDENIED, false},
      {&Board::acquire_result, DXGI_ERROR_ACCESS_LOST, true},
      {&Board::acquire_result, DXGI_ERROR_INVALID_CALL, true},
      {&Board::texture_result, E_NOINTERFACE, true},
      {&Board::staging_result, E_OUTOFMEMORY, true},
      {&Board::map_result, DXGI_ERROR_DEVICE_REMOVED, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    ScreenCapturer capturer;
    CapturedFrame frame;
    board_.*row.result = row.failure;
    EXPECT_EQ(capturer.Open(0), row.opens);
    EXPECT_FALSE(capturer.AcquireFrame(frame, kPatience));
    EXPECT_FALSE(capturer.AcquireFrame(frame, kPatience));
    board_.*row.result = 0;
    ASSERT_TRUE(capturer.Open(0));
    ExpectPicture(capturer, 320, 180);
  }
}

TEST_F(StrictCapture, FifthDuplicatingProgramIsLoggedAndOpensWhenAnotherHasEnded) {
  board_.other_programs = 4;
  ScreenCapturer capturer;
  EXPECT_FALSE(capturer.Open(0));
  EXPECT_EQ(debug_log(), "capture: DuplicateOutput failed hr=0x887a0022\n");
  board_.other_programs = 3;
  EXPECT_TRUE(capturer.Open(0));
}

TEST_F(StrictCapture, AfterALostDuplicationTheCopiedRectangleStaysWhateverTheDisplayDoes) {
  const test::PaintedWindow window(40, 30, 200, 120);
  set_outputs({{40, 30, 200, 120}});
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  set_outputs({{0, 0, 640, 480}});
  CapturedFrame frame;
  EXPECT_FALSE(capturer.AcquireFrame(frame, kPatience)) << "a new mode ends the duplication";
  for (const test::Area& area : {test::Area{0, 0, 640, 480}, {-300, -200, 80, 60}, {40, 30, 200, 120}}) {
    set_outputs({area});
    EXPECT_FALSE(capturer.AcquireFrame(frame, kPatience));
    EXPECT_TRUE(test::pump_until([&] {
      EXPECT_TRUE(capturer.CaptureGdi(frame));
      return test::shows_pattern(frame.pixels, 200, 0, 0, 200, 120);
    }));
    EXPECT_EQ(frame.width, 200u);
    EXPECT_EQ(frame.height, 120u);
    EXPECT_EQ(capturer.left(), 40);
    EXPECT_EQ(capturer.top(), 30);
    EXPECT_EQ(capturer.width(), 200);
    EXPECT_EQ(capturer.height(), 120);
  }
  EXPECT_EQ(board_.losses, 1) << "the lost duplication is not used again";
  EXPECT_EQ(debug_log(), "capture: DXGI duplication started hr=0x00000000\n");
}

TEST_F(StrictCapture, KnownTurnedMonitorIsDuplicatedLyingOnItsSideAndCopiedUpright) {
  set_outputs({{0, 0, 180, 320}});
  board_.outputs[0].rotation = DXGI_MODE_ROTATION_ROTATE90;
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  EXPECT_EQ(capturer.width(), 180);
  EXPECT_EQ(capturer.height(), 320);
  ExpectPicture(capturer, 320, 180);
  CapturedFrame frame;
  EXPECT_TRUE(capturer.CaptureGdi(frame));
  EXPECT_EQ(frame.width, 180u);
  EXPECT_EQ(frame.height, 320u);
}

TEST_F(StrictCapture, KnownUpsideDownMonitorIsDuplicatedUpsideDown) {
  board_.outputs[0].rotation = DXGI_MODE_ROTATION_ROTATE180;
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  ExpectPicture(capturer, 320, 180);
}

}  // namespace
}  // namespace vlk::agent
