// One screen image at a time, from desktop duplication (a frame only when the desktop changes) or from a
// plain GDI copy (a frame whenever asked). Choosing between the two, and all retrying, is the caller's
// business.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vlk::agent {

// A packed, top-down 32-bit image: blue, green, red and a fourth byte that nothing reads.
struct CapturedFrame {
  std::uint32_t width = 0;           // pixels
  std::uint32_t height = 0;          // rows
  std::int32_t stride = 0;           // bytes a row: always width * 4, whatever the source's pitch
  std::vector<std::uint8_t> pixels;  // height * stride bytes
  bool fresh = true;                 // false after a time-out or a failure; callers go by the results instead
};

// Belongs to the streaming worker's thread from creation to destruction.
class ScreenCapturer {
 public:
  ScreenCapturer();
  ~ScreenCapturer();
  ScreenCapturer(const ScreenCapturer&) = delete;
  ScreenCapturer& operator=(const ScreenCapturer&) = delete;

  // Sets up duplication of the monitor with that index in EnumerateMonitors' walk; true means that it runs.
  // Starts with Close and may be called repeatedly. A failure is logged and leaves an earlier rectangle in
  // place.
  bool Open(std::int32_t monitor_index);

  // Releases everything of the duplication; the rectangle stays.
  void Close();

  // Waits up to `timeout_ms` for a changed desktop; true when `frame` holds it. A lost duplication is dropped
  // silently and only Open brings it back.
  bool AcquireFrame(CapturedFrame& frame, std::uint32_t timeout_ms);

  // Copies the monitor's rectangle, or the primary screen when none is known. Always true, also for a failed
  // copy.
  bool CaptureGdi(CapturedFrame& frame);

  // The last monitor that Open found, in virtual-desktop pixels; all 0 before.
  std::int32_t width() const;
  std::int32_t height() const;
  std::int32_t left() const;
  std::int32_t top() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
