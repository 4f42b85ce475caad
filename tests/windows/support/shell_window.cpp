// Creates the window's record and the window.
#include "tests/windows/support/shell_window.h"

#include <gtest/gtest.h>

namespace vlk::agent {

ShellWindow::ShellWindow(const AgentConfig& config) {
  static_cast<AgentConfig&>(main) = config;
  main.server_host = "127.0.0.1";
  main.server_port = 9;
  WNDCLASSW type = {};
  type.lpfnWndProc = main_window_procedure;
  type.hInstance = GetModuleHandleW(nullptr);
  type.lpszClassName = L"ShellWindow";
  RegisterClassW(&type);
  window = CreateWindowExW(0, type.lpszClassName, L"", WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX, 50, 50, 366,
                           465, nullptr, nullptr, type.hInstance, &main);
  EXPECT_NE(window, nullptr);
}

ShellWindow::~ShellWindow() {
  if (IsWindow(window)) DestroyWindow(window);
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {  // WM_QUIT would end the next test's loop
  }
}

void ShellWindow::stop_client() {
  main.client->stop();
  test::pump_messages();
}

}  // namespace vlk::agent
