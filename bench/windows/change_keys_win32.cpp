// A window in the top left corner that shows a number, and the next number after each press of a key. The
// argument is the first number. The benchmark of changes starts it on a desk, presses keys at a viewer, and
// reads the number from the viewer's picture.
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tests/doubles/scripted_picture.h"

namespace {

constexpr int kWidth = vantelink_doubles::kSquare * vantelink_doubles::kNumberBits;
constexpr int kHeight = vantelink_doubles::kSquare;

std::uint32_t number;

void paint(HDC context) {
  std::vector<std::uint8_t> pixels(std::size_t{kWidth} * kHeight * 4);
  vantelink_doubles::paint_picture(pixels.data(), kWidth, kHeight, std::size_t{kWidth} * 4, number, 0);
  BITMAPINFO format{};
  format.bmiHeader.biSize = sizeof format.bmiHeader;
  format.bmiHeader.biWidth = kWidth;
  format.bmiHeader.biHeight = -kHeight;  // from top to bottom
  format.bmiHeader.biPlanes = 1;
  format.bmiHeader.biBitCount = 32;
  SetDIBitsToDevice(context, 0, 0, kWidth, kHeight, 0, 0, 0, kHeight, pixels.data(), &format, DIB_RGB_COLORS);
}

LRESULT CALLBACK handle(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_KEYDOWN:
      ++number;
      InvalidateRect(window, nullptr, FALSE);
      UpdateWindow(window);
      return 0;
    case WM_PAINT: {
      PAINTSTRUCT area;
      paint(BeginPaint(window, &area));
      EndPaint(window, &area);
      return 0;
    }
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

}  // namespace

int main(int count, char** words) {
  number = count > 1 ? static_cast<std::uint32_t>(std::atoi(words[1])) : 0;
  WNDCLASSW kind{};
  kind.lpfnWndProc = handle;
  kind.lpszClassName = L"VantelinkChangeKeys";
  RegisterClassW(&kind);
  const HWND window = CreateWindowExW(WS_EX_TOPMOST, kind.lpszClassName, L"", WS_POPUP | WS_VISIBLE, 0, 0,
                                      kWidth, kHeight, nullptr, nullptr, nullptr, nullptr);
  if (window == nullptr) return 1;
  SetForegroundWindow(window);
  for (MSG message; GetMessageW(&message, nullptr, 0, 0) > 0;) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return 0;
}
