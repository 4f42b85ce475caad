// The program's entry point: chooses between the interactive agent and the service's run modes. The
// interactive agent loads the settings, creates the window and runs the message loop.
#include <windows.h>
#include <commctrl.h>

#include <string>

#include "platform/text.h"
#include "platform/threads/file_errors.h"
#include "platform/win32/gdiplus_win32.h"
#include "resources/resource.h"
#include "shell/command_line.h"
#include "shell/main_window.h"
#include "shell/texts.h"
#include "system/service.h"

namespace {

using namespace vlk::agent;

constexpr DWORD kWindowStyle = WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;  // the size is fixed
constexpr wchar_t kMessageTitle[] = L"Maravek";
constexpr RECT kClientArea = {0, 0, 360, 440};  // pixels

MainWindow& main_window() {
  static MainWindow record;
  return record;
}

// A failure deliberately has the same icon as a success.
void show_result(bool good, const wchar_t* success, const wchar_t* failure) {
  MessageBoxW(nullptr, good ? success : failure, kMessageTitle, MB_OK | MB_ICONINFORMATION);
}

void run_install_service() {
  if (!is_administrator()) {
    MessageBoxW(nullptr, L"Please run as Administrator to install the service.", kMessageTitle,
                MB_OK | MB_ICONWARNING);
    return;
  }
  show_result(install_service(), L"Service installed and started.", L"Service install failed.");
}

void run_uninstall_service() {
  if (!is_administrator()) {
    MessageBoxW(nullptr, L"Please run as Administrator to remove the service.", kMessageTitle,
                MB_OK | MB_ICONWARNING);
    return;
  }
  show_result(uninstall_service(), L"Service removed.", L"Service removal failed.");
}

// Registers this process as the first copy of the agent in this logon session, by a mutex that stays open and
// owned until the process ends. False if another copy is already registered. If the mutex cannot be created,
// every copy counts as the first.
[[nodiscard]] bool become_first_copy() {
  const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Local\\VantelinkAgentSingleton");
  return mutex == nullptr || GetLastError() != ERROR_ALREADY_EXISTS;
}

void show_first_copy() {
  const HWND window = FindWindowW(kWindowClass, nullptr);
  if (window != nullptr) PostMessageW(window, WM_SHOW_MAIN, 0, 0);
}

void set_dpi_awareness() {
  const HMODULE user32 = GetModuleHandleW(L"user32");
  if (user32 == nullptr) return;
  using SetContext = BOOL(WINAPI*)(DPI_AWARENESS_CONTEXT);
  // The cast goes through void(*)(), because the two function types are unrelated.
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

// Runs the interactive agent, from loading the settings to the end of the message loop.
void run_agent(HINSTANCE instance, std::wstring_view command_line, int show_command) {
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

  // No object of GDI+ may exist at its shutdown. The MainWindow record exists until the process ends, so its
  // logo is destroyed here, and stop() ends the threads that encode pictures if the window has not done so.
  if (main.client) main.client->stop();
  main.logo.reset();
  Gdiplus::GdiplusShutdown(gdiplus);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR raw_command_line, int show_command) {
  vlk::disable_file_error_boxes();
  const std::wstring command_line = raw_command_line != nullptr ? raw_command_line : L"";
  switch (find_run_mode(command_line)) {
    case RunMode::Service:
      run_service_dispatcher();
      return 0;
    case RunMode::InstallService:
      run_install_service();
      return 0;
    case RunMode::UninstallService:
      run_uninstall_service();
      return 0;
    case RunMode::Agent:
      break;
  }
  if (become_first_copy()) {
    run_agent(instance, command_line, show_command);
  } else {
    show_first_copy();
  }
  return 0;
}
