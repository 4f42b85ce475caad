// The notification area's icon and menu. Failures of the Windows shell are ignored: the agent works without
// an icon.
#include "shell/tray.h"

#include <cwchar>

#include "platform/win32/handles_win32.h"
#include "resources/resource.h"
#include "shell/main_window.h"
#include "shell/texts.h"

namespace vlk::agent {
namespace {

constexpr UINT kIconId = 1;
// The tooltip is always in English, unlike the window's title.
constexpr wchar_t kTooltipPrefix[] = L"Maravek Remote Support - ";

static_assert(sizeof(NOTIFYICONDATAW) == 976, "the shell knows the record's version by its size");

using UniqueMenu = UniqueHandle<HMENU, DestroyMenu>;

void set_tip(NOTIFYICONDATAW& data, const wchar_t* text) {
  wcsncpy_s(data.szTip, std::size(data.szTip), text, _TRUNCATE);
}

HICON load_icon() {
  const HICON icon = LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_AGENT));
  return icon != nullptr ? icon : LoadIconW(nullptr, IDI_APPLICATION);
}

}  // namespace

void add_tray_icon(MainWindow& main) {
  NOTIFYICONDATAW& data = main.notify_data;
  data.cbSize = sizeof data;
  data.hWnd = main.window;
  data.uID = kIconId;
  data.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
  data.uCallbackMessage = WM_TRAY_NOTIFY;
  data.hIcon = load_icon();
  set_tip(data, ui_texts().title);
  Shell_NotifyIconW(NIM_ADD, &data);
  refresh_tooltip(main);
}

void remove_tray_icon(MainWindow& main) {
  Shell_NotifyIconW(NIM_DELETE, &main.notify_data);
}

void refresh_tooltip(MainWindow& main) {
  const std::wstring text = kTooltipPrefix + tray_status_text(main.status, main.rep_count);
  set_tip(main.notify_data, text.c_str());
  Shell_NotifyIconW(NIM_MODIFY, &main.notify_data);
}

void show_tray_menu(MainWindow& main) {
  POINT pointer = {};
  GetCursorPos(&pointer);
  const UniqueMenu menu(CreatePopupMenu());
  AppendMenuW(menu.get(), MF_STRING, kMenuOpen, ui_texts().menu_open);
  AppendMenuW(menu.get(), main.unattended ? MF_CHECKED : MF_STRING, kMenuUnattended,
              ui_texts().menu_unattended);
  AppendMenuW(menu.get(), MF_SEPARATOR, 0, nullptr);
  AppendMenuW(menu.get(), MF_STRING, kMenuExit, ui_texts().menu_exit);
  // Without this call, the menu would stay open when the user clicks elsewhere.
  SetForegroundWindow(main.window);
  TrackPopupMenu(menu.get(), TPM_RIGHTBUTTON, pointer.x, pointer.y, 0, main.window, nullptr);
}

}  // namespace vlk::agent
