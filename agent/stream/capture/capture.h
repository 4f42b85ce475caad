// Captures screen images, by desktop duplication (a frame only when the desktop changes) or by a GDI copy (a
// frame at each call). The caller chooses between the two ways and retries after failures.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/threads/thread_checker.h"

namespace vlk::agent {

// A packed, top-down 32-bit image. The bytes of a pixel are blue, green, red and an unused byte.
struct CapturedFrame {
  std::uint32_t width = 0;           // pixels
  std::uint32_t height = 0;          // rows
  std::int32_t stride = 0;           // bytes per row: always width * 4
  std::vector<std::uint8_t> pixels;  // height * stride bytes
  bool fresh = true;                 // false after a time-out or a failure; callers check the results instead
};

// Created, used and destroyed on the streaming worker's thread.
class ScreenCapturer {
 public:
  ScreenCapturer();
  ~ScreenCapturer();
  ScreenCapturer(const ScreenCapturer&) = delete;
  ScreenCapturer& operator=(const ScreenCapturer&) = delete;

  // Calls Close, then starts the duplication of the monitor with the index `monitor_index` in
  // EnumerateMonitors. True if the duplication has started. May be called again. If the monitor is not found,
  // the rectangle stays unchanged.
  bool Open(std::int32_t monitor_index);

  // Releases the duplication. The rectangle stays unchanged.
  void Close();

  // Waits up to `timeout_ms` for a change of the desktop; true if `frame` now contains the changed desktop. A
  // duplication that the system has ended is released silently; only Open starts a new one.
  bool AcquireFrame(CapturedFrame& frame, std::uint32_t timeout_ms);

  // Copies the monitor's rectangle from the screen, or the primary screen if no monitor was found yet. Always
  // true, even if the copy fails.
  bool CaptureGdi(CapturedFrame& frame);

  // The rectangle of the last monitor that Open found, in virtual-desktop pixels; all 0 before.
  std::int32_t width() const;
  std::int32_t height() const;
  std::int32_t left() const;
  std::int32_t top() const;

 private:
  struct State;
  [[no_unique_address]] ThreadChecker worker_thread_;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
