// Creates, paints and closes the window.
#include "tests/windows/support/painted_window.h"

namespace vlk::test {

Colour pattern(int x, int y) {
  return {static_cast<std::uint8_t>(x * 7 + y * 3), static_cast<std::uint8_t>(x + y * 5 + (x * y) / 16),
          static_cast<std::uint8_t>(x * 2 + y * 11 + 40)};
}

int screen_width() {
  static const int size = GetSystemMetrics(SM_CXSCREEN);
  return size;
}

int screen_height() {
  static const int size = GetSystemMetrics(SM_CYSCREEN);
  return size;
}

void pump_messages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

PaintedWindow::PaintedWindow(int left, int top, int width, int height, Paint paint, HCURSOR cursor)
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

PaintedWindow::~PaintedWindow() {
  DestroyWindow(window_);
}

void PaintedWindow::Draw() const {
  PAINTSTRUCT paint;
  BeginPaint(window_, &paint);
  const BITMAPINFOHEADER& size = info_.bmiHeader;
  SetDIBitsToDevice(paint.hdc, 0, 0, static_cast<DWORD>(size.biWidth), static_cast<DWORD>(-size.biHeight), 0,
                    0, 0, static_cast<UINT>(-size.biHeight), pixels_.data(), &info_, DIB_RGB_COLORS);
  EndPaint(window_, &paint);
}

LRESULT CALLBACK PaintedWindow::Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_NCCREATE) {
    auto* const created =
        static_cast<PaintedWindow*>(reinterpret_cast<CREATESTRUCTW*>(lparam)->lpCreateParams);
    created->window_ = window;  // messages may arrive before CreateWindowExW returns
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
    case WM_PAINT:
      self->Draw();
      return 0;
    case WM_SETCURSOR:
      if (LOWORD(lparam) != HTCLIENT) break;
      SetCursor(self->cursor_);
      return TRUE;
    default:
      break;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

Colour colour_at(const std::vector<std::uint8_t>& pixels, int width, int x, int y) {
  const std::size_t at =
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
  return {pixels[at], pixels[at + 1], pixels[at + 2]};
}

bool shows_pattern(const std::vector<std::uint8_t>& pixels, int image_width, int left, int top, int width,
                   int height) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (colour_at(pixels, image_width, left + x, top + y) != pattern(x, y)) return false;
    }
  }
  return true;
}

}  // namespace vlk::test
