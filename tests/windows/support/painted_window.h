// A window with known colours, for tests that look at the screen or point at something.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include <windows.h>

#include "tests/windows/support/holdings.h"

namespace vlk::test {

struct Colour {
  std::uint8_t blue, green, red;
  bool operator==(const Colour&) const = default;
};

// The colour of a pixel of the window: each differs from its neighbours and from a shifted or mirrored copy.
inline Colour pattern(int x, int y) {
  return {static_cast<std::uint8_t>(x * 7 + y * 3), static_cast<std::uint8_t>(x + y * 5 + (x * y) / 16),
          static_cast<std::uint8_t>(x * 2 + y * 11 + 40)};
}

inline void pump_messages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

// Handles this thread's messages until the condition holds. False: it did not within thirty seconds.
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

// A frameless window above all others, painted by a formula. Keeps the messages that a test asks about.
class PaintedWindow {
 public:
  using Paint = Colour (*)(int x, int y);

  struct Message {
    UINT id;
    WPARAM wparam;
    LPARAM lparam;
  };

  PaintedWindow(int left, int top, int width, int height, Paint paint = pattern, HCURSOR cursor = nullptr)
      : cursor_(cursor) {
    pixels_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const Colour colour = paint(x, y);
        pixels_[static_cast<std::size_t>(y * width + x)] =
            static_cast<std::uint32_t>(colour.blue | colour.green << 8 | colour.red << 16);
      }
    }
    info_.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info_.bmiHeader.biWidth = width;
    info_.bmiHeader.biHeight = -height;
    info_.bmiHeader.biPlanes = 1;
    info_.bmiHeader.biBitCount = 32;

    WNDCLASSW type = {};
    type.lpfnWndProc = Procedure;
    type.hInstance = GetModuleHandleW(nullptr);
    type.lpszClassName = L"PaintedWindow";
    RegisterClassW(&type);
    window_ = CreateWindowExW(WS_EX_TOPMOST, type.lpszClassName, L"", WS_POPUP | WS_VISIBLE, left, top, width,
                              height, nullptr, nullptr, type.hInstance, this);
    UpdateWindow(window_);
    SetForegroundWindow(window_);
    pump_messages();
  }
  ~PaintedWindow() { DestroyWindow(window_); }
  PaintedWindow(const PaintedWindow&) = delete;
  PaintedWindow& operator=(const PaintedWindow&) = delete;

  HWND handle() const { return window_; }
  const std::vector<Message>& input() const { return input_; }  // mouse and keyboard messages, in order

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_NCCREATE) {
      auto* created = reinterpret_cast<CREATESTRUCTW*>(lparam)->lpCreateParams;
      SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(created));
    }
    auto* self = reinterpret_cast<PaintedWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (!self) return DefWindowProcW(window, message, wparam, lparam);
    if ((message >= WM_KEYFIRST && message <= WM_KEYLAST) ||
        (message >= WM_MOUSEFIRST && message <= WM_MOUSELAST)) {
      self->input_.push_back({message, wparam, lparam});
    }
    switch (message) {
      case WM_ERASEBKGND:
        return 1;
      case WM_PAINT: {
        PAINTSTRUCT paint;
        BeginPaint(window, &paint);
        const BITMAPINFOHEADER& size = self->info_.bmiHeader;
        SetDIBitsToDevice(paint.hdc, 0, 0, static_cast<DWORD>(size.biWidth),
                          static_cast<DWORD>(-size.biHeight), 0, 0, 0, static_cast<UINT>(-size.biHeight),
                          self->pixels_.data(), &self->info_, DIB_RGB_COLORS);
        EndPaint(window, &paint);
        return 0;
      }
      case WM_SETCURSOR:
        if (LOWORD(lparam) != HTCLIENT) break;
        SetCursor(self->cursor_);
        return TRUE;
      default:
        break;
    }
    return DefWindowProcW(window, message, wparam, lparam);
  }

  HWND window_ = nullptr;
  HCURSOR cursor_;
  BITMAPINFO info_ = {};
  std::vector<std::uint32_t> pixels_;
  std::vector<Message> input_;
};

// The colours of a packed 32-bit image at a place.
inline Colour colour_at(const std::vector<std::uint8_t>& pixels, int width, int x, int y) {
  const std::size_t at =
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
  return {pixels[at], pixels[at + 1], pixels[at + 2]};
}

// Whether the image shows the pattern with its corner at (left, top).
inline bool shows_pattern(const std::vector<std::uint8_t>& pixels, int image_width, int left, int top,
                          int width, int height) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (colour_at(pixels, image_width, left + x, top + y) != pattern(x, y)) return false;
    }
  }
  return true;
}

}  // namespace vlk::test
