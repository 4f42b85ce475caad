// The logo, the panel, the tray icon and the painting of the window, with each call of the system failing in
// turn. Not among them is GetClientRect: without the window's size, what is painted is undefined.
#include <windows.h>
#include <shellapi.h>

#include <string>

#include <gtest/gtest.h>

#include "platform/win32/gdiplus_win32.h"
#include "platform/win32/handles_win32.h"
#include "shell/main_window.h"
#include "shell/panel/settings_panel.h"
#include "shell/tray.h"
#include "tests/windows/support/counted_calls.h"
#include "tests/windows/support/painted_window.h"

using Gdiplus::DllExports::GdipCreateFromHDC;
using Gdiplus::DllExports::GdipDrawImageRectI;
using Gdiplus::DllExports::GdipLoadImageFromStream;
using Gdiplus::DllExports::GdipSetInterpolationMode;

VLK_COUNTED("kernel32.dll", FindResourceW, 0, ERROR_RESOURCE_TYPE_NOT_FOUND)
VLK_COUNTED("kernel32.dll", SizeofResource, 0, ERROR_RESOURCE_DATA_NOT_FOUND)
VLK_COUNTED("kernel32.dll", LoadResource, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", GlobalAlloc, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("ole32.dll", CreateStreamOnHGlobal, E_OUTOFMEMORY, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipLoadImageFromStream, Gdiplus::OutOfMemory, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipCreateFromHDC, Gdiplus::OutOfMemory, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipSetInterpolationMode, Gdiplus::InvalidParameter, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipDrawImageRectI, Gdiplus::OutOfMemory, 0)
VLK_COUNTED("user32.dll", CreateWindowExW, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("gdi32.dll", GetStockObject, 0, 0)
VLK_COUNTED("user32.dll", LoadIconW, 0, ERROR_RESOURCE_NAME_NOT_FOUND)
VLK_COUNTED("user32.dll", CreatePopupMenu, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("user32.dll", AppendMenuW, FALSE, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("user32.dll", GetCursorPos, FALSE, ERROR_ACCESS_DENIED)
VLK_COUNTED("user32.dll", SetForegroundWindow, FALSE, 0)
VLK_COUNTED("user32.dll", BeginPaint, 0, 0)
VLK_COUNTED("user32.dll", FillRect, 0, 0)

namespace vlk::agent {
namespace {

constexpr COLORREF kWhite = RGB(255, 255, 255), kRed = RGB(255, 0, 0);

std::string seen;  // what the tray icon and the menu have shown

BOOL WINAPI notify_icon(DWORD message, NOTIFYICONDATAW* data) {
  if (test::call_fails("Shell_NotifyIconW")) return FALSE;
  seen += message == NIM_ADD ? "added" : message == NIM_MODIFY ? ", changed" : ", removed";
  seen += data->hIcon == nullptr ? " without icon" : "";
  return TRUE;
}

// A menu that is shown would wait for the user.
BOOL WINAPI track(HMENU menu, UINT, int x, int y, int, HWND, const RECT*) {
  if (test::call_fails("TrackPopupMenu")) return FALSE;
  seen += ", " + std::to_string(GetMenuItemCount(menu)) + " entries at " + std::to_string(x) + ' ' +
          std::to_string(y);
  return TRUE;
}

// The window's procedure without the client, the panel and the tray icon that it makes at first.
LRESULT CALLBACK bare_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_CREATE) return 0;
  if (message == WM_DESTROY) return DefWindowProcW(window, message, wparam, lparam);
  return main_window_procedure(window, message, wparam, lparam);
}

class ShellFaults : public testing::Test {
 protected:
  ShellFaults() {
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&gdiplus_, &input, nullptr);
    WNDCLASSW type = {};
    type.lpfnWndProc = bare_procedure;
    type.hInstance = GetModuleHandleW(nullptr);
    type.lpszClassName = L"ShellFaults";
    RegisterClassW(&type);
    main_.window = CreateWindowExW(0, type.lpszClassName, L"", WS_POPUP | WS_VISIBLE, 50, 50, 360, 440,
                                   nullptr, nullptr, type.hInstance, nullptr);
    SetWindowLongPtrW(main_.window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&main_));
    test::pump_messages();
  }
  ~ShellFaults() override {
    DestroyWindow(main_.window);
    main_.logo.reset();
    Gdiplus::GdiplusShutdown(gdiplus_);
  }

  COLORREF pixel(int x, int y) const {
    const HDC dc = GetDC(main_.window);
    const COLORREF colour = GetPixel(dc, x, y);
    ReleaseDC(main_.window, dc);
    return colour;
  }

  void paint_red() const {
    const HDC dc = GetDC(main_.window);
    RECT client;
    GetClientRect(main_.window, &client);
    const HBRUSH brush = CreateSolidBrush(kRed);
    FillRect(dc, &client, brush);
    DeleteObject(brush);
    ReleaseDC(main_.window, dc);
  }

  // Paints the window, and says what it shows then.
  std::string painted() const {
    paint_red();
    InvalidateRect(main_.window, nullptr, FALSE);
    UpdateWindow(main_.window);
    return shown();
  }

  std::string shown() const {
    std::string text = pixel(5, 430) == kWhite ? "white" : "red";
    // The logo's corners are transparent, and its middle is not.
    for (int x = 60; x < 300; ++x) {
      const COLORREF colour = pixel(x, 67);
      if (colour != kWhite && colour != kRed) return text + ", logo";
    }
    return text;
  }

  std::string controls() const {
    int count = 0, fonts = 0;
    for (HWND child = nullptr; (child = FindWindowExW(main_.window, child, nullptr, nullptr)) != nullptr;) {
      ++count;
      if (SendMessageW(child, WM_GETFONT, 0, 0) != 0) ++fonts;
    }
    return std::to_string(count) + " controls, " + std::to_string(fonts) + " with the font";
  }

  void remove_controls() const {
    while (const HWND child = FindWindowExW(main_.window, nullptr, nullptr, nullptr))
      DestroyWindow(child);
  }

  ULONG_PTR gdiplus_ = 0;
  MainWindow main_;
};

TEST_F(ShellFaults, LogoThatCannotBeLoadedIsNotPainted) {
  const int calls = test::expect_effects({
      .prepare = [&] { main_.logo.reset(); },
      .work = [&] { main_.logo = load_logo(); },
      .result = [&] { return painted(); },
      .usual = "white, logo",
      .effects = {{"FindResourceW 1", "white"},
                  {"SizeofResource 1", "white"},
                  {"LoadResource 1", "white"},
                  {"GlobalAlloc 1", "white"},
                  {"CreateStreamOnHGlobal 1", "white"},
                  {"GdipLoadImageFromStream 1", "white"}},
  });
  EXPECT_EQ(calls, 6);
}

TEST_F(ShellFaults, WindowIsPaintedAsFarAsPossible) {
  main_.logo = load_logo();
  const int calls = test::expect_effects({
      .prepare =
          [&] {
            paint_red();
            InvalidateRect(main_.window, nullptr, FALSE);
          },
      .work = [&] { UpdateWindow(main_.window); },
      .result = [&] { return shown(); },
      .usual = "white, logo",
      .effects = {{"BeginPaint 1", "red"},
                  {"FillRect 1", "red, logo"},
                  {"GdipCreateFromHDC 1", "white"},
                  {"GdipDrawImageRectI 1", "white"}},
  });
  EXPECT_EQ(calls, 5);
}

TEST_F(ShellFaults, ControlThatCannotBeCreatedIsMissing) {
  const std::string without = "4 controls, 3 with the font";
  const int calls = test::expect_effects({
      .prepare = [&] { remove_controls(); },
      .work = [&] { create_controls(main_, main_.window); },
      .result = [&] { return controls(); },
      .usual = "5 controls, 4 with the font",
      .effects = {{"CreateWindowExW 1", "4 controls, 4 with the font"},
                  {"CreateWindowExW 2", without},
                  {"CreateWindowExW 3", without},
                  {"CreateWindowExW 4", without},
                  {"CreateWindowExW 5", without},
                  {"GetStockObject 1", "5 controls, 0 with the font"}},
  });
  remove_controls();
  EXPECT_EQ(calls, 6);
}

TEST_F(ShellFaults, TrayIconAndMenuShowWhatIsLeft) {
  const auto after = [](const std::string& menu) { return "added, changed" + menu + ", removed"; };
  const std::string three = after(", 3 entries at 30 40");
  const int calls = test::expect_effects({
      .prepare =
          [&] {
            seen.clear();
            SetCursorPos(30, 40);
            main_.notify_data = {};
          },
      .work =
          [&] {
            add_tray_icon(main_);
            show_tray_menu(main_);
            remove_tray_icon(main_);
          },
      .result = [] { return seen; },
      .usual = after(", 4 entries at 30 40"),
      .effects = {{"Shell_NotifyIconW 1", ", changed, 4 entries at 30 40, removed"},
                  {"Shell_NotifyIconW 2", "added, 4 entries at 30 40, removed"},
                  {"GetCursorPos 1", after(", 4 entries at 0 0")},
                  {"CreatePopupMenu 1", after(", -1 entries at 30 40")},
                  {"AppendMenuW 1", three},
                  {"AppendMenuW 2", three},
                  {"AppendMenuW 3", three},
                  {"AppendMenuW 4", three},
                  {"TrackPopupMenu 1", after("")},
                  {"Shell_NotifyIconW 3", "added, changed, 4 entries at 30 40"}},
  });
  EXPECT_EQ(calls, 12);
}

}  // namespace
}  // namespace vlk::agent

extern "C" {
void* __imp_Shell_NotifyIconW = reinterpret_cast<void*>(vlk::agent::notify_icon);
void* __imp_TrackPopupMenu = reinterpret_cast<void*>(vlk::agent::track);
}
