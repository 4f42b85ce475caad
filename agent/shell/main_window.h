// The agent's only top-level window, with the state of everything that runs on the UI thread. Other threads
// communicate with the window only by posting its private messages. For Windows files only.
#pragma once

#include <windows.h>
#include <shellapi.h>

#include <cstdint>
#include <memory>
#include <string>

#include "client/agent_client.h"
#include "config/config.h"
#include "platform/threads/mutex.h"
#include "platform/threads/thread_checker.h"
#include "shell/panel/logo_win32.h"
#include "shell/window_messages_win32.h"

namespace vlk::agent {

inline constexpr wchar_t kWindowClass[] = L"VantelinkAgent";

// The window's state, in static storage. Used on the UI thread only, except for the members that pending_lock
// guards. The settings are the UI's own copy. The client has another copy, and whichever of the two is saved
// overwrites all stored values.
struct MainWindow : AgentConfig {
  std::unique_ptr<AgentClient> client;  // from WM_CREATE to the end of the process
  Logo logo;                            // if empty, nothing is painted
  HWND window = nullptr;
  HWND name_edit = nullptr;
  HWND unattended_check = nullptr;
  HWND apply_button = nullptr;
  HWND status_label = nullptr;
  std::int32_t status = 0;  // a value of Status, as last received
  std::int32_t rep_count = 0;
  bool exiting = false;  // closing the window ends the process instead of hiding the window
  Mutex pending_lock;
  std::uint32_t pending_session VLK_GUARDED_BY(pending_lock) = 0;
  std::string pending_rep_name VLK_GUARDED_BY(pending_lock);  // UTF-8
  NOTIFYICONDATAW notify_data = {};
  [[no_unique_address]] ThreadChecker ui_thread;  // bound to the UI thread by WM_CREATE
};

// The window procedure. The creation parameter is the MainWindow.
LRESULT CALLBACK main_window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

}  // namespace vlk::agent
