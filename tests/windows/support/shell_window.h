// The agent's main window inside a test program. The test owns the window's record. The window's client finds
// no server.
#pragma once

#include <windows.h>

#include "shell/main_window.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {

class ShellWindow {
 public:
  explicit ShellWindow(const AgentConfig& config = {});
  ~ShellWindow();
  ShellWindow(const ShellWindow&) = delete;
  ShellWindow& operator=(const ShellWindow&) = delete;

  // Stops the client, so that no further status comes from it.
  void stop_client();

  MainWindow main;
  HWND window = nullptr;
};

}  // namespace vlk::agent
