// Draws the mouse pointer, which no capture backend delivers, onto a captured frame.
#pragma once

#include <cstdint>
#include <memory>

#include "stream/capture/capture.h"

namespace vlk::agent {

// Keeps one drawing surface from frame to frame. Used on the streaming worker's thread only.
class CursorOverlay {
 public:
  CursorOverlay();
  ~CursorOverlay();
  CursorOverlay(const CursorOverlay&) = delete;
  CursorOverlay& operator=(const CursorOverlay&) = delete;

  // Changes `frame.pixels` in place. `left` and `top` are the monitor's origin in virtual-desktop pixels. A
  // pointer that is hidden, elsewhere or cannot be had leaves the frame as it was.
  void Draw(CapturedFrame& frame, std::int32_t left, std::int32_t top);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
