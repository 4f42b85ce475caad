// The GDI copy of the real screen, pixel by pixel.
#include <gtest/gtest.h>

#include "stream/capture/capture.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

int screen_width() {
  static const int size = GetSystemMetrics(SM_CXSCREEN);
  return size;
}

int screen_height() {
  static const int size = GetSystemMetrics(SM_CYSCREEN);
  return size;
}

TEST(GdiCapture, WithoutAMonitorItIsThePrimaryScreen) {
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

TEST(GdiCapture, EveryPixelOfAWindowIsInItsPlace) {
  const test::PaintedWindow window(101, 83, 257, 131);
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_TRUE(test::pump_until([&] {
    capturer.CaptureGdi(frame);
    return test::shows_pattern(frame.pixels, screen_width(), 101, 83, 257, 131);
  }));
}

TEST(GdiCapture, LayeredWindowsAreSeen) {
  const test::PaintedWindow window(300, 200, 64, 64);
  SetWindowLongPtrW(window.handle(), GWL_EXSTYLE, WS_EX_LAYERED | WS_EX_TOPMOST);
  SetLayeredWindowAttributes(window.handle(), 0, 255, LWA_ALPHA);
  InvalidateRect(window.handle(), nullptr, FALSE);
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_TRUE(test::pump_until([&] {
    capturer.CaptureGdi(frame);
    return test::shows_pattern(frame.pixels, screen_width(), 300, 200, 64, 64);
  }));
}

TEST(GdiCapture, AFrameUsedAgainIsFilledAnew) {
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

TEST(GdiCapture, AForgottenObjectWouldBeSeen) {
  const test::Holdings before = test::holdings();
  const HBITMAP forgotten = CreateBitmap(3, 3, 1, 32, nullptr);
  const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(test::holdings().gdi, before.gdi + 1);
  EXPECT_EQ(test::holdings().handles, before.handles + 1);
  DeleteObject(forgotten);
  CloseHandle(event);
  EXPECT_EQ(test::holdings(), before);
}

TEST(GdiCapture, CapturesLeaveNothingBehind) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  for (int i = 0; i < 3; ++i)
    capturer.CaptureGdi(frame);
  const test::Holdings before = test::holdings();
  for (int i = 0; i < 200; ++i)
    capturer.CaptureGdi(frame);
  const test::Holdings after = test::holdings();
  EXPECT_EQ(after.gdi, before.gdi);
  EXPECT_EQ(after.handles, before.handles);
}

// What Wine lacks: a real duplication. So Open fails there, and must do so without leaving anything open.
TEST(GdiCapture, OpenAndCloseLeaveNothingBehind) {
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
