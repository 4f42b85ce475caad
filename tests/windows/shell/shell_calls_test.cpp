// What panel and tray ask of Windows, call by call with every argument, in both languages.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "platform/text.h"
#include "platform/win32/handles_win32.h"
#include "shell/panel/settings_panel.h"
#include "shell/tray.h"
#include "tests/windows/support/seam.h"
#include "tests/windows/support/shell_window.h"

#include <commctrl.h>
#include <shellapi.h>

namespace {

using Lines = std::vector<std::string>;

constexpr LANGID kEnglish = 0x0409;
constexpr LANGID kIcelandic = 0x040F;

Lines calls;  // those of the UI thread
std::vector<NOTIFYICONDATAW> icons;
LANGID language = kEnglish;
bool icon_resource = false;  // whether the program has an icon of its own
const HICON own_icon = reinterpret_cast<HICON>(0x1234);
constexpr UINT_PTR kMenu = 0x5678;

template <typename... Words>
void note(const char* format, Words... words) {
  char line[400];
  std::snprintf(line, sizeof line, format, words...);
  calls.push_back(line);
}

std::string narrow(const wchar_t* text) {
  return text == nullptr ? "(none)" : vlk::WideToUtf8(text);
}

// The key's last folder, as handles say nothing.
const char* key_name(const wchar_t* path) {
  return std::wstring_view(path).ends_with(L"Run") ? "Run" : "settings";
}

LANGID WINAPI user_language() {
  return language;
}

BOOL WINAPI notify_icon(DWORD message, NOTIFYICONDATAW* data) {
  note("Shell_NotifyIcon %lu", message);
  icons.push_back(*data);
  return FALSE;  // which nobody looks at
}

HICON WINAPI load_icon(HINSTANCE module, LPCWSTR name) {
  if (module == nullptr) return vlk::test::real<decltype(load_icon)>("user32.dll", "LoadIconW")(module, name);
  note("LoadIcon %d %d", module == GetModuleHandleW(nullptr),
       static_cast<int>(reinterpret_cast<UINT_PTR>(name)));
  return icon_resource ? own_icon : nullptr;
}

HMENU WINAPI create_menu() {
  note("CreatePopupMenu");
  return reinterpret_cast<HMENU>(kMenu);
}

BOOL WINAPI append(HMENU menu, UINT flags, UINT_PTR id, LPCWSTR text) {
  note("AppendMenu %d %x %u %s", menu == reinterpret_cast<HMENU>(kMenu), flags, static_cast<unsigned>(id),
       narrow(text).c_str());
  return TRUE;
}

BOOL WINAPI track(HMENU menu, UINT flags, int x, int y, int reserved, HWND window, const RECT* rectangle) {
  note("TrackPopupMenu %d %x %d %d %d %d %d", menu == reinterpret_cast<HMENU>(kMenu), flags, x, y, reserved,
       window != nullptr, rectangle != nullptr);
  return FALSE;
}

BOOL WINAPI destroy_menu(HMENU menu) {
  if (menu == reinterpret_cast<HMENU>(kMenu)) note("DestroyMenu");
  return TRUE;
}

BOOL WINAPI cursor_position(POINT* point) {
  *point = {321, 123};
  return TRUE;
}

BOOL WINAPI to_foreground(HWND) {
  note("SetForegroundWindow");
  return FALSE;
}

BOOL WINAPI show(HWND window, int command) {
  note("ShowWindow %d", command);
  return vlk::test::real<decltype(show)>("user32.dll", "ShowWindow")(window, command);
}

HWND WINAPI create_window(DWORD extended, LPCWSTR type, LPCWSTR text, DWORD style, int x, int y, int width,
                          int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter) {
  if (parent != nullptr) {
    note("%lx %s %s %lx %d %d %d %d %d %d %d", extended, narrow(type).c_str(), narrow(text).c_str(), style, x,
         y, width, height, static_cast<int>(reinterpret_cast<UINT_PTR>(menu)),
         instance == GetModuleHandleW(nullptr), parameter != nullptr);
  }
  return vlk::test::real<decltype(create_window)>("user32.dll", "CreateWindowExW")(
      extended, type, text, style, x, y, width, height, parent, menu, instance, parameter);
}

LSTATUS WINAPI create_key(HKEY root, LPCWSTR path, DWORD, LPWSTR, DWORD, REGSAM access, SECURITY_ATTRIBUTES*,
                          HKEY* key, DWORD*) {
  note("create %d %s %lx", root == HKEY_CURRENT_USER, key_name(path), access);
  *key = reinterpret_cast<HKEY>(std::wstring_view(path).ends_with(L"Run") ? 2 : 1);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD, DWORD type, const BYTE* data, DWORD) {
  if (type == REG_DWORD) {
    note("set %s %d", narrow(name).c_str(), data[0]);
  } else if (key == reinterpret_cast<HKEY>(2)) {
    note("set entry");
  } else {
    note("set %s \"%s\"", narrow(name).c_str(), narrow(reinterpret_cast<const wchar_t*>(data)).c_str());
  }
  return ERROR_ACCESS_DENIED;  // which nobody looks at
}

LSTATUS WINAPI open_key(HKEY, LPCWSTR, DWORD, REGSAM, HKEY*) {
  return ERROR_FILE_NOT_FOUND;  // there is no entry yet
}

LSTATUS WINAPI close_key(HKEY) {
  return ERROR_SUCCESS;
}

}  // namespace

extern "C" {
void* __imp_GetUserDefaultUILanguage = reinterpret_cast<void*>(user_language);
void* __imp_Shell_NotifyIconW = reinterpret_cast<void*>(notify_icon);
void* __imp_LoadIconW = reinterpret_cast<void*>(load_icon);
void* __imp_CreatePopupMenu = reinterpret_cast<void*>(create_menu);
void* __imp_AppendMenuW = reinterpret_cast<void*>(append);
void* __imp_TrackPopupMenu = reinterpret_cast<void*>(track);
void* __imp_DestroyMenu = reinterpret_cast<void*>(destroy_menu);
void* __imp_GetCursorPos = reinterpret_cast<void*>(cursor_position);
void* __imp_SetForegroundWindow = reinterpret_cast<void*>(to_foreground);
void* __imp_ShowWindow = reinterpret_cast<void*>(show);
void* __imp_CreateWindowExW = reinterpret_cast<void*>(create_window);
void* __imp_RegCreateKeyExW = reinterpret_cast<void*>(create_key);
void* __imp_RegSetValueExW = reinterpret_cast<void*>(set_value);
void* __imp_RegOpenKeyExW = reinterpret_cast<void*>(open_key);
void* __imp_RegCloseKey = reinterpret_cast<void*>(close_key);
}

namespace vlk::agent {
namespace {

class ShellCalls : public testing::Test {
 protected:
  void SetUp() override {
    language = kEnglish;
    icon_resource = false;
    forget();
  }
  static void forget() {
    calls.clear();
    icons.clear();
  }
  static Lines calls_with(const std::string& begin) {
    Lines found;
    for (const std::string& line : calls)
      if (line.starts_with(begin)) found.push_back(line);
    return found;
  }
  static std::string tip() { return icons.empty() ? "(none)" : narrow(icons.back().szTip); }
};

TEST_F(ShellCalls, ControlsAreMadeInOrderWithTheirStyles) {
  AgentConfig config;
  config.display_name = "Ægir";
  config.unattended = true;
  const ShellWindow shell(config);
  EXPECT_EQ(calls_with("0 "), (Lines{
                                  "0 STATIC Vessel name: 50000000 24 130 312 18 0 1 0",
                                  "0 EDIT Ægir 50800080 24 152 312 26 1001 1 0",
                                  "0 BUTTON Enable unattended access 50000003 24 192 312 22 1002 1 0",
                                  "0 BUTTON Apply 50000001 24 224 100 30 1003 1 0",
                                  "0 STATIC Connecting… 50000000 24 268 312 36 1004 1 0",
                              }));
  EXPECT_EQ(SendMessageW(shell.main.unattended_check, BM_GETCHECK, 0, 0), BST_CHECKED);
}

TEST_F(ShellCalls, AllControlsButTheNameLabelHaveTheGuiFont) {
  const ShellWindow shell;
  const auto font = reinterpret_cast<LRESULT>(GetStockObject(DEFAULT_GUI_FONT));
  for (const WORD id : {kNameEdit, kUnattendedCheck, kApplyButton, kStatusLabel})
    EXPECT_EQ(SendMessageW(GetDlgItem(shell.window, id), WM_GETFONT, 0, 0), font) << id;
  const HWND label = FindWindowExW(shell.window, nullptr, L"STATIC", L"Vessel name:");
  ASSERT_NE(label, nullptr);
  EXPECT_EQ(SendMessageW(label, WM_GETFONT, 0, 0), 0) << "it keeps the system's";
}

TEST_F(ShellCalls, PanelIsIcelandicForAnIcelandicUser) {
  language = kIcelandic;
  const ShellWindow shell;
  EXPECT_EQ(calls_with("0 "), (Lines{
                                  "0 STATIC Skipsnafn/Skipsnúmer: 50000000 24 130 312 18 0 1 0",
                                  "0 EDIT  50800080 24 152 312 26 1001 1 0",
                                  "0 BUTTON Leyfa fjaraðstoð án eftirlits. 50000003 24 192 312 22 1002 1 0",
                                  "0 BUTTON Vista 50000001 24 224 100 30 1003 1 0",
                                  "0 STATIC Tengist… 50000000 24 268 312 36 1004 1 0",
                              }));
}

TEST_F(ShellCalls, IconIsAddedWithTheTitleAndSaysOfflineBeforeAnyStatus) {
  for (const LANGID user : {kEnglish, kIcelandic}) {
    language = user;
    forget();
    const ShellWindow shell;
    ASSERT_GE(icons.size(), 2u);
    EXPECT_EQ(calls_with("Shell"), (Lines{"Shell_NotifyIcon 0", "Shell_NotifyIcon 1"}));
    NOTIFYICONDATAW expected = {};
    expected.cbSize = 976;
    expected.hWnd = shell.window;
    expected.uID = 1;
    expected.uFlags = 7;
    expected.uCallbackMessage = 32771;
    expected.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    std::wcscpy(expected.szTip, user == kEnglish ? L"Maravek Remote Support" : L"Maravek Fjaraðstoð");
    EXPECT_EQ(std::memcmp(&icons[0], &expected, sizeof expected), 0) << narrow(icons[0].szTip);
    EXPECT_EQ(narrow(icons[1].szTip), "Maravek Remote Support - Offline");
    EXPECT_EQ(icons[1].uFlags, 7u);
  }
}

TEST_F(ShellCalls, IconIsTheProgramsOwnIfItHasOne) {
  icon_resource = true;
  const ShellWindow shell;
  EXPECT_EQ(calls_with("LoadIcon"), (Lines{"LoadIcon 1 100"}));
  EXPECT_EQ(icons.at(0).hIcon, own_icon);
}

TEST_F(ShellCalls, EachStatusRefreshesTheTooltip) {
  language = kIcelandic;
  ShellWindow shell;
  shell.quieten();
  const struct {
    int status, count;
    const char* tip;
  } rows[] = {{1, 0, "Maravek Remote Support - Connecting…"},
              {2, 4, "Maravek Remote Support - Online"},
              {3, 3, "Maravek Remote Support - Reps connected: 3"},
              {3, 0, "Maravek Remote Support - Reps connected: 1"},
              {99, 3, "Maravek Remote Support - Offline"},
              {0, 0, "Maravek Remote Support - Offline"}};
  for (const auto& row : rows) {
    forget();
    SendMessageW(shell.window, WM_AGENT_STATUS, static_cast<WPARAM>(row.status), row.count);
    EXPECT_EQ(calls, (Lines{"Shell_NotifyIcon 1"}));
    EXPECT_EQ(tip(), row.tip);
  }
}

TEST_F(ShellCalls, IconGoesWithTheWindow) {
  ShellWindow shell;
  forget();
  DestroyWindow(shell.window);
  EXPECT_EQ(calls_with("Shell"), (Lines{"Shell_NotifyIcon 2"}));
  EXPECT_EQ(icons.at(0).uID, 1u);
}

TEST_F(ShellCalls, MenuIsMadeShownAndDestroyed) {
  ShellWindow shell;
  shell.quieten();
  forget();
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_RBUTTONUP);
  EXPECT_EQ(calls,
            (Lines{"CreatePopupMenu", "AppendMenu 1 0 40001 Open", "AppendMenu 1 0 40002 Unattended access",
                   "AppendMenu 1 800 0 (none)", "AppendMenu 1 0 40003 Exit", "SetForegroundWindow",
                   "TrackPopupMenu 1 2 321 123 0 1 0", "DestroyMenu"}));
  language = kIcelandic;
  shell.main.unattended = true;
  forget();
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_RBUTTONUP);
  EXPECT_EQ(calls_with("Append"),
            (Lines{"AppendMenu 1 0 40001 Opna", "AppendMenu 1 8 40002 Fjaraðstoð án eftirlits",
                   "AppendMenu 1 800 0 (none)", "AppendMenu 1 0 40003 Hætta"}));
}

TEST_F(ShellCalls, OnlyADoubleClickAndTheRightButtonsReleaseAct) {
  ShellWindow shell;
  shell.quieten();
  forget();
  for (LPARAM message = WM_MOUSEFIRST; message <= WM_MOUSELAST; ++message) {
    if (message == WM_LBUTTONDBLCLK || message == WM_RBUTTONUP) continue;
    EXPECT_EQ(SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, message), 0);
  }
  EXPECT_EQ(calls, Lines{});
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_LBUTTONDBLCLK);
  EXPECT_EQ(calls, (Lines{"ShowWindow 5", "ShowWindow 9", "SetForegroundWindow"}));
}

TEST_F(ShellCalls, ApplySavesNameWithTheOldSwitchFirst) {
  AgentConfig config;
  config.agent_id = "id";
  config.agent_secret = "secret";
  config.skipped_version = "0.2";
  ShellWindow shell(config);
  shell.quieten();
  SetWindowTextW(shell.main.name_edit, L"Ægir");
  SendMessageW(shell.main.unattended_check, BM_SETCHECK, BST_CHECKED, 0);
  forget();
  SendMessageW(shell.window, WM_COMMAND, MAKEWPARAM(1003, BN_CLICKED),
               reinterpret_cast<LPARAM>(shell.main.apply_button));
  const Lines strings = {"create 1 settings 2", "set DisplayName \"Ægir\"", "set AgentId \"id\"",
                         "set AgentSecret \"secret\"", "set SkippedVersion \"0.2\""};
  Lines expected = strings;
  expected.insert(expected.end(), {"set Unattended 0", "create 1 Run 2", "set entry"});
  expected.insert(expected.end(), strings.begin(), strings.end());
  expected.insert(expected.end(), {"set Unattended 1", "Shell_NotifyIcon 1"});
  EXPECT_EQ(calls, expected);
  EXPECT_EQ(shell.main.display_name, "Ægir");
  EXPECT_TRUE(shell.main.unattended) << "though not one write went well";
}

TEST_F(ShellCalls, OnlyAMarkOfExactlyOneCountsAsChecked) {
  ShellWindow shell;
  shell.quieten();
  SendMessageW(shell.main.unattended_check, BM_SETSTYLE, BS_AUTO3STATE, 0);
  SendMessageW(shell.main.unattended_check, BM_SETCHECK, BST_INDETERMINATE, 0);
  apply_settings(shell.main);
  EXPECT_FALSE(shell.main.unattended);
  EXPECT_EQ(SendMessageW(shell.main.unattended_check, BM_GETCHECK, 0, 0), BST_UNCHECKED);
}

}  // namespace
}  // namespace vlk::agent
