// What the benchmarks of the stream capture, and what the agent's process starts before it captures anything.
#pragma once

#include <windows.h>

#include "platform/win32/gdiplus_win32.h"
#include "tests/windows/support/painted_window.h"

namespace vantelink_bench {

// A painted window with a pointer of its own in the upper left corner of the screen, and GDI+, which the JPEG
// encoder needs.
class PaintedDesktop {
 public:
  PaintedDesktop() {
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&gdiplus_, &input, nullptr);
    vlk::test::pump_messages();
  }
  ~PaintedDesktop() { Gdiplus::GdiplusShutdown(gdiplus_); }
  PaintedDesktop(const PaintedDesktop&) = delete;
  PaintedDesktop& operator=(const PaintedDesktop&) = delete;

 private:
  vlk::test::PaintedWindow window_{0, 0, 300, 300, vlk::test::pattern, LoadCursorW(nullptr, IDC_ARROW)};
  ULONG_PTR gdiplus_ = 0;
};

}  // namespace vantelink_bench
