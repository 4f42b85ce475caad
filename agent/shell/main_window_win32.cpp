// The window procedure, the callbacks through which the client posts messages to the window, and the
// painting.
#include "shell/main_window.h"

#include <utility>

#include "clipboard/apply_win32.h"
#include "clipboard/watch_win32.h"
#include "shell/panel/settings_panel.h"
#include "shell/prompts/consent_prompt.h"
#include "shell/prompts/update_prompt.h"
#include "shell/texts.h"
#include "shell/tray.h"
#include "update/manifest.h"
#include "update/update_threads.h"

namespace vlk::agent {
namespace {

// The logo's rectangle in client pixels. The picture is scaled to this size.
constexpr int kLogoTop = 20;
constexpr int kLogoWidth = 260;
constexpr int kLogoHeight = 95;

void show_and_raise(HWND window) {
  ShowWindow(window, SW_SHOW);
  ShowWindow(window, SW_RESTORE);
  SetForegroundWindow(window);
}

AgentCallbacks make_callbacks(MainWindow& main) {
  const HWND window = main.window;
  AgentCallbacks callbacks;
  callbacks.on_status = [window](Status status, int count) {
    PostMessageW(window, WM_AGENT_STATUS, static_cast<WPARAM>(status), count);
  };
  callbacks.on_notice = [window](const std::string& text) { post_status_text(window, text); };
  callbacks.on_session_request = [window, &main](std::uint32_t session, std::string representative) {
    {
      const MutexLock lock(main.pending_lock);
      main.pending_session = session;
      main.pending_rep_name = std::move(representative);
    }
    PostMessageW(window, WM_CONSENT_REQUEST, 0, 0);
  };
  callbacks.on_clipboard = [window](const std::vector<std::uint8_t>& payload) {
    post_payload(window, WM_CLIPBOARD_INBOUND, payload);
  };
  callbacks.on_session_ended = [window](std::uint32_t session) {
    PostMessageW(window, WM_CONSENT_CANCEL, session, 0);
  };
  return callbacks;
}

void start_agent(MainWindow& main) {
  main.client = std::make_unique<AgentClient>(static_cast<const AgentConfig&>(main), make_callbacks(main));
  main.client->start();
  StartClipboardWatch(main.window, [&main](const unsigned char* data, std::size_t size) {
    if (main.client) main.client->send_clipboard(data, size);
  });
}

LRESULT on_create(HWND window, LPARAM lparam) {
  auto* const main = static_cast<MainWindow*>(reinterpret_cast<CREATESTRUCTW*>(lparam)->lpCreateParams);
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(main));
  main->ui_thread.rebind();
  main->window = window;
  main->logo = load_logo();
  create_controls(*main, window);
  start_agent(*main);
  add_tray_icon(*main);
  const ServerAddress server = server_address(*main);
  start_update_check(server.host, server.port,
                     [window](const UpdateOffer& offer) { post_payload(window, WM_UPDATE_OFFER, offer); });
  return 0;
}

LRESULT on_destroy(MainWindow* main) {
  if (main != nullptr) {
    remove_tray_icon(*main);
    // Blocks until the connection thread has ended, which can take the rest of a reconnect delay. The client
    // object stays until the process ends.
    if (main->client) main->client->stop();
  }
  PostQuitMessage(0);
  return 0;
}

LRESULT on_paint(HWND window, const MainWindow* main) {
  PAINTSTRUCT paint;
  const HDC dc = BeginPaint(window, &paint);
  RECT client;
  GetClientRect(window, &client);
  FillRect(dc, &client, reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1));
  if (main != nullptr && main->logo) {
    draw_logo(dc, main->logo, (client.right - client.left - kLogoWidth) / 2, kLogoTop, kLogoWidth,
              kLogoHeight);
  }
  EndPaint(window, &paint);
  return 0;
}

void on_clipboard_inbound(WPARAM wparam) {
  const auto payload = take_payload<std::vector<std::uint8_t>>(wparam);
  if (payload) ApplyClipboard(*payload);
}

// Ends the process: from here on, closing the window no longer hides it.
void exit_agent(MainWindow& main) {
  main.exiting = true;
  DestroyWindow(main.window);
}

// Handles a command from a control or a menu entry. False if the id belongs to none of them.
bool on_command(MainWindow& main, WORD id, WORD notification) {
  main.ui_thread.check();
  switch (id) {
    case kApplyButton:
      if (notification == BN_CLICKED) apply_settings(main);
      return true;
    case kMenuOpen:
      show_and_raise(main.window);
      return true;
    case kMenuUnattended:
      set_unattended(main, !main.unattended);
      return true;
    case kMenuExit:
      exit_agent(main);
      return true;
    default:
      return false;
  }
}

void on_tray_notify(MainWindow& main, LPARAM mouse_message) {
  switch (mouse_message) {
    case WM_LBUTTONDBLCLK:
      show_and_raise(main.window);
      return;
    case WM_RBUTTONUP:
      show_tray_menu(main);
      return;
    default:
      return;
  }
}

// Handles a private message that needs the window's record. False for every other message.
bool on_private_message(MainWindow& main, UINT message, WPARAM wparam, LPARAM lparam) {
  main.ui_thread.check();
  switch (message) {
    case WM_AGENT_STATUS:
      main.status = static_cast<std::int32_t>(wparam);
      main.rep_count = static_cast<std::int32_t>(lparam);
      SetWindowTextW(main.status_label, status_text(main.status));
      refresh_tooltip(main);
      return true;
    case WM_CONSENT_REQUEST:
      run_consent_prompt(main);
      return true;
    case WM_TRAY_NOTIFY:
      on_tray_notify(main, lparam);
      return true;
    case WM_STATUS_TEXT: {
      const auto text = take_payload<std::wstring>(wparam);
      if (text) SetWindowTextW(main.status_label, text->c_str());
      return true;
    }
    case WM_UPDATE_OFFER: {
      const auto offer = take_payload<UpdateOffer>(wparam);
      if (offer) run_update_prompt(main, *offer);
      return true;
    }
    case WM_EXIT_FOR_UPDATE:
      exit_agent(main);
      return true;
    case WM_SHOW_MAIN:
      show_and_raise(main.window);
      return true;
    default:
      return false;
  }
}

}  // namespace

LRESULT CALLBACK main_window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* const main = reinterpret_cast<MainWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  switch (message) {
    case WM_CREATE:
      return on_create(window, lparam);
    case WM_DESTROY:
      return on_destroy(main);
    case WM_PAINT:
      return on_paint(window, main);
    case WM_SIZE:
      if (wparam != SIZE_MINIMIZED) break;
      ShowWindow(window, SW_HIDE);
      return 0;
    case WM_CLOSE:
      if (main == nullptr || main->exiting) break;
      ShowWindow(window, SW_HIDE);
      return 0;
    case WM_COMMAND:
      if (main != nullptr && on_command(*main, LOWORD(wparam), HIWORD(wparam))) return 0;
      break;
    case WM_CONSENT_CANCEL:
      cancel_consent_prompt(static_cast<std::uint32_t>(wparam));
      return 0;
    case WM_CLIPBOARDUPDATE:
      OnClipboardUpdate();
      return 0;
    case WM_CLIPBOARD_INBOUND:
      on_clipboard_inbound(wparam);
      return 0;
    default:
      if (main != nullptr && on_private_message(*main, message, wparam, lparam)) return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace vlk::agent
