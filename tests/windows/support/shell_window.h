// The agent's window inside a test program: its record is the test's, its client finds no server.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include "shell/main_window.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {

class ShellWindow {
 public:
  explicit ShellWindow(const AgentConfig& config = {}) {
    static_cast<AgentConfig&>(main) = config;
    main.server_host = "127.0.0.1";
    main.server_port = 9;
    WNDCLASSW type = {};
    type.lpfnWndProc = main_window_procedure;
    type.hInstance = GetModuleHandleW(nullptr);
    type.lpszClassName = L"ShellWindow";
    RegisterClassW(&type);
    window = CreateWindowExW(0, type.lpszClassName, L"", WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX, 50, 50,
                             366, 465, nullptr, nullptr, type.hInstance, &main);
    EXPECT_NE(window, nullptr);
  }
  ~ShellWindow() {
    if (IsWindow(window)) DestroyWindow(window);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {  // the quit message, most of all
    }
  }
  ShellWindow(const ShellWindow&) = delete;
  ShellWindow& operator=(const ShellWindow&) = delete;

  // From here on no status comes by itself.
  void quieten() {
    main.client->stop();
    test::pump_messages();
  }

  MainWindow main;
  HWND window = nullptr;
};

}  // namespace vlk::agent
