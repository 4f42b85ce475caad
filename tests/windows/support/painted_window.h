// A window with known colours, for tests that capture the screen or send input to a window.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace vlk::test {

struct Colour {
  std::uint8_t blue, green, red;
  bool operator==(const Colour&) const = default;
};

// The colour of a pixel of the window. Adjacent pixels differ, and so do shifted and mirrored copies of the
// pattern.
Colour pattern(int x, int y);

// Size of the primary screen in pixels.
int screen_width();
int screen_height();

// Handles the messages that wait in this thread's queue.
void pump_messages();

// Handles this thread's messages until the condition is true. Returns false if that takes over thirty
// seconds.
template <typename Condition>
bool pump_until(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
    pump_messages();
  }
  return true;
}

// A frameless topmost window, painted by a formula. Records the mouse and keyboard messages it receives.
class PaintedWindow {
 public:
  using Paint = Colour (*)(int x, int y);

  struct Message {
    UINT id;
    WPARAM wparam;
    LPARAM lparam;
  };

  PaintedWindow(int left, int top, int width, int height, Paint paint = pattern, HCURSOR cursor = nullptr);
  ~PaintedWindow();
  PaintedWindow(const PaintedWindow&) = delete;
  PaintedWindow& operator=(const PaintedWindow&) = delete;

  HWND handle() const { return window_; }
  const std::vector<Message>& input() const { return input_; }  // in the order received

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  void Draw() const;

  HWND window_ = nullptr;
  HCURSOR cursor_;
  BITMAPINFO info_ = {};
  std::vector<std::uint32_t> pixels_;
  std::vector<Message> input_;
};

// The colour of a pixel of a packed 32-bit image.
Colour colour_at(const std::vector<std::uint8_t>& pixels, int width, int x, int y);

// Whether the image shows the pattern with its upper left corner at (left, top).
bool shows_pattern(const std::vector<std::uint8_t>& pixels, int image_width, int left, int top, int width,
                   int height);

}  // namespace vlk::test
