// The one top-level window: the centre of the process on the UI thread. Other threads reach it by posting the
// private messages and in no other way. For Windows files only.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <windows.h>

#include "client/agent_client.h"
#include "config/config.h"
#include "platform/window_messages_win32.h"
#include "shell/panel/logo_win32.h"

#include <shellapi.h>

namespace vlk::agent {

inline constexpr wchar_t kWindowClass[] = L"VantelinkAgent";

// Static storage, UI thread only but for what pending_lock guards. Its settings are the UI's own live copy:
// the client holds another, and each saves itself whole.
struct MainWindow : AgentConfig {
  std::unique_ptr<AgentClient> client;  // from WM_CREATE to the end of the process
  Logo logo;                            // may be empty: then nothing is painted
  HWND window = nullptr;
  HWND name_edit = nullptr;
  HWND unattended_check = nullptr;
  HWND apply_button = nullptr;
  HWND status_label = nullptr;
  std::int32_t status = 0;  // as last received
  std::int32_t rep_count = 0;
  bool exiting = false;  // closing the window ends the process instead of hiding it
  std::mutex pending_lock;
  std::uint32_t pending_session = 0;
  std::string pending_rep_name;  // UTF-8
  NOTIFYICONDATAW notify_data = {};
};

// The window's procedure. The creation parameter is the MainWindow.
LRESULT CALLBACK main_window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

}  // namespace vlk::agent
