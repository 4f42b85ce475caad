// Creates the controls and applies their values.
#include "shell/panel/settings_panel.h"

#include "platform/text.h"
#include "shell/main_window.h"
#include "shell/texts.h"
#include "shell/tray.h"
#include "system/autostart.h"

namespace vlk::agent {
namespace {

constexpr int kNameSize = 256;  // characters, including the terminating zero; a longer name is truncated

// Left edge and width of the controls, in client pixels. They are not scaled to the screen's resolution.
constexpr int kLeft = 24;
constexpr int kWidth = 312;

struct Place {
  int top, width, height;
};

HWND create_control(HWND window, const wchar_t* type, WORD id, DWORD style, Place place,
                    const wchar_t* text) {
  const auto instance = reinterpret_cast<HINSTANCE>(GetWindowLongPtrW(window, GWLP_HINSTANCE));
  return CreateWindowExW(0, type, text, WS_CHILD | WS_VISIBLE | style, kLeft, place.top, place.width,
                         place.height, window, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(id)), instance,
                         nullptr);
}

}  // namespace

void create_controls(MainWindow& main, HWND window) {
  create_control(window, L"STATIC", 0, 0, {130, kWidth, 18}, ui_texts().name_label);
  main.name_edit = create_control(window, L"EDIT", kNameEdit, WS_BORDER | ES_AUTOHSCROLL, {152, kWidth, 26},
                                  Utf8ToWide(main.display_name).c_str());
  main.unattended_check = create_control(window, L"BUTTON", kUnattendedCheck, BS_AUTOCHECKBOX,
                                         {192, kWidth, 22}, ui_texts().unattended_label);
  main.apply_button = create_control(window, L"BUTTON", kApplyButton, BS_DEFPUSHBUTTON, {224, 100, 30},
                                     ui_texts().apply_label);
  main.status_label =
      create_control(window, L"STATIC", kStatusLabel, 0, {268, kWidth, 36}, ui_texts().status_connecting);

  SendMessageW(main.unattended_check, BM_SETCHECK, main.unattended, 0);
  // The label above the name deliberately keeps the system font.
  const auto font = reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT));
  for (const HWND control : {main.name_edit, main.unattended_check, main.apply_button, main.status_label}) {
    SendMessageW(control, WM_SETFONT, font, TRUE);
  }
}

void apply_settings(MainWindow& main) {
  wchar_t name[kNameSize] = {};
  GetWindowTextW(main.name_edit, name, kNameSize);
  main.display_name = WideToUtf8(name);
  const bool checked = SendMessageW(main.unattended_check, BM_GETCHECK, 0, 0) == BST_CHECKED;
  // Saves the old value of unattended access. set_unattended then saves the new one.
  save_config(main);
  set_unattended(main, checked);
  if (main.client) main.client->set_display_name(main.display_name);
}

void set_unattended(MainWindow& main, bool unattended) {
  // Unattended access needs an agent that starts by itself at each log-on. A failure to write or remove the
  // entry is ignored.
  if (unattended) {
    if (!autostart_exists()) (void)add_autostart();
  } else {
    if (autostart_exists()) (void)remove_autostart();
  }
  main.unattended = unattended;
  save_config(main);
  if (main.client) main.client->set_unattended(unattended);
  SendMessageW(main.unattended_check, BM_SETCHECK, unattended, 0);
  refresh_tooltip(main);
}

}  // namespace vlk::agent
