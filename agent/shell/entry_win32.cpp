// The program's entry: it decides whether this is the first copy, loads the settings, makes the window and
// runs the message loop.
#include <windows.h>

#include <commctrl.h>
#include <objidl.h>

#include <algorithm>
#include <string>

namespace Gdiplus {
using std::max;  // its headers ask for these by name
using std::min;
}  // namespace Gdiplus

#include <gdiplus.h>

#include "platform/text.h"
#include "resources/resource.h"
#include "shell/command_line.h"
#include "shell/main_window.h"
#include "shell/texts.h"

namespace {

using namespace vlk::agent;

constexpr DWORD kWindowStyle = WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;  // no sizing border, no maximise box
constexpr RECT kClientArea = {0, 0, 360, 440};                            // pixels

MainWindow& main_window() {
  static MainWindow record;
  return record;
}

// True for the first copy in this logon session. The mutex stays open and owned until the process ends; one
// that cannot be had is no reason not to run.
bool take_singleton() {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Local\\VantelinkAgentSingleton");
  return mutex == nullptr || GetLastError() != ERROR_ALREADY_EXISTS;
}

void wake_first_copy() {
  const HWND window = FindWindowW(kWindowClass, nullptr);
  if (window != nullptr) PostMessageW(window, WM_SHOW_MAIN, 0, 0);
}

void set_dpi_awareness() {
  const HMODULE user32 = GetModuleHandleW(L"user32");
  if (user32 == nullptr) return;
  using SetContext = BOOL(WINAPI*)(DPI_AWARENESS_CONTEXT);
  // By way of void(*)(), as the two function types are unrelated.
  const auto set_context = reinterpret_cast<SetContext>(
      reinterpret_cast<void (*)()>(GetProcAddress(user32, "SetProcessDpiAwarenessContext")));
  if (set_context != nullptr) {
    set_context(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
  } else {
    SetProcessDPIAware();
  }
}

void load_settings(MainWindow& main, std::wstring_view command_line) {
  static_cast<AgentConfig&>(main) = load_config();
  if (const auto host = find_host(command_line)) main.server_host = vlk::WideToUtf8(*host);
  if (const auto port = find_port(command_line)) main.server_port = *port;
}

HWND make_window(HINSTANCE instance, MainWindow& main) {
  WNDCLASSW window_class = {};
  window_class.lpfnWndProc = main_window_procedure;
  window_class.hInstance = instance;
  window_class.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(IDI_AGENT));
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  window_class.lpszClassName = kWindowClass;
  RegisterClassW(&window_class);
  RECT outer = kClientArea;
  AdjustWindowRect(&outer, kWindowStyle, FALSE);
  return CreateWindowExW(0, kWindowClass, ui_texts().title, kWindowStyle, CW_USEDEFAULT, CW_USEDEFAULT,
                         outer.right - outer.left, outer.bottom - outer.top, nullptr, nullptr, instance,
                         &main);
}

void run_message_loop() {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR raw_command_line, int show_command) {
  const std::wstring command_line = raw_command_line != nullptr ? raw_command_line : L"";
  if (!take_singleton()) {
    wake_first_copy();
    return 0;
  }
  set_dpi_awareness();
  ULONG_PTR gdiplus = 0;
  const Gdiplus::GdiplusStartupInput gdiplus_input;
  Gdiplus::GdiplusStartup(&gdiplus, &gdiplus_input, nullptr);
  InitCommonControls();

  MainWindow& main = main_window();
  load_settings(main, command_line);
  const HWND window = make_window(instance, main);
  ShowWindow(window, wants_hidden_start(command_line) ? SW_HIDE : show_command);
  UpdateWindow(window);
  run_message_loop();

  Gdiplus::GdiplusShutdown(gdiplus);
  return 0;
}
