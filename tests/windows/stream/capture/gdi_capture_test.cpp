// The GDI copy of the real screen, compared pixel by pixel.
#include <gtest/gtest.h>

#include "stream/capture/capture.h"
#include "tests/windows/support/holdings.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::screen_height;
using test::screen_width;

// Captures the screen until the frame shows the test pattern in the given rectangle.
void expect_captured(int left, int top, int width, int height) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_TRUE(test::pump_until([&] {
    capturer.CaptureGdi(frame);
    return test::shows_pattern(frame.pixels, screen_width(), left, top, width, height);
  }));
}

TEST(GdiCapture, CopiesThePrimaryScreenIfNoMonitorIsOpen) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  frame.fresh = false;
  EXPECT_TRUE(capturer.CaptureGdi(frame));
  EXPECT_EQ(frame.width, static_cast<std::uint32_t>(screen_width()));
  EXPECT_EQ(frame.height, static_cast<std::uint32_t>(screen_height()));
  EXPECT_EQ(frame.stride, screen_width() * 4);
  EXPECT_EQ(frame.pixels.size(), static_cast<std::size_t>(screen_width() * screen_height() * 4));
  EXPECT_TRUE(frame.fresh);
  EXPECT_EQ(capturer.width(), 0);
  EXPECT_EQ(capturer.height(), 0);
}

TEST(GdiCapture, CopiesEveryPixelOfAWindow) {
  const test::PaintedWindow window(101, 83, 257, 131);
  expect_captured(101, 83, 257, 131);
}

TEST(GdiCapture, CopiesLayeredWindows) {
  const test::PaintedWindow window(300, 200, 64, 64);
  SetWindowLongPtrW(window.handle(), GWL_EXSTYLE, WS_EX_LAYERED | WS_EX_TOPMOST);
  SetLayeredWindowAttributes(window.handle(), 0, 255, LWA_ALPHA);
  InvalidateRect(window.handle(), nullptr, FALSE);
  expect_captured(300, 200, 64, 64);
}

TEST(GdiCapture, ReusedFrameIsOverwritten) {
  const test::PaintedWindow window(10, 10, 40, 40);
  ScreenCapturer capturer;
  CapturedFrame frame;
  frame.pixels.assign(7, 0xAB);
  frame.width = 3;
  EXPECT_TRUE(test::pump_until([&] {
    capturer.CaptureGdi(frame);
    return test::shows_pattern(frame.pixels, screen_width(), 10, 10, 40, 40);
  }));
  EXPECT_EQ(frame.pixels.size(), static_cast<std::size_t>(screen_width() * screen_height() * 4));
}

TEST(GdiCapture, LeakedObjectsAreCounted) {
  const test::Holdings before = test::holdings();
  const HBITMAP forgotten = CreateBitmap(3, 3, 1, 32, nullptr);
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(test::holdings().gdi, before.gdi + 1);
  EXPECT_EQ(test::holdings().handles, before.handles + 1);
  DeleteObject(forgotten);
  CloseHandle(event);
  EXPECT_EQ(test::holdings(), before);
}

TEST(GdiCapture, CapturesLeaveNothingOpen) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_EQ(test::left_open_by([&] { capturer.CaptureGdi(frame); }), test::Holdings());
}

// Wine has no desktop duplication, so Open fails there and must not leave anything open.
TEST(GdiCapture, OpeningAndClosingLeaveNothingOpen) {
  ScreenCapturer capturer;
  for (int i = 0; i < 3; ++i)
    capturer.Open(0);
  capturer.Close();
  const test::Holdings before = test::holdings();
  for (int i = 0; i < 20; ++i)
    capturer.Open(0);
  capturer.Close();
  EXPECT_LE(test::holdings().gdi, before.gdi);
}

}  // namespace
}  // namespace vlk::agent
