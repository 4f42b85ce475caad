// Draws the mouse pointer onto a captured frame, because captures do not contain it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/threads/thread_checker.h"
#include "stream/capture/capture.h"

namespace vlk::agent {

// Keeps one drawing surface for all frames. Used on the streaming worker's thread only.
class CursorOverlay {
 public:
  CursorOverlay();
  ~CursorOverlay();
  CursorOverlay(const CursorOverlay&) = delete;
  CursorOverlay& operator=(const CursorOverlay&) = delete;

  // Draws the pointer into `frame.pixels`. `left` and `top` are the monitor's origin in virtual-desktop
  // pixels. The frame stays unchanged if the pointer is hidden, outside the frame or unavailable.
  void Draw(CapturedFrame& frame, std::int32_t left, std::int32_t top);

 private:
  struct State;
  [[no_unique_address]] ThreadChecker worker_thread_;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
