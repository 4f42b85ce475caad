// The replaced calls of the window, the settings panel and the tray icon, and the record of their arguments.
#include "tests/windows/shell/shell_calls_seam.h"

#include <process.h>

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "platform/text.h"
#include "tests/windows/support/seam.h"

namespace vlk::test {

ShellScript shell_script;

std::string narrow(const wchar_t* text) {
  return text == nullptr ? "(none)" : WideToUtf8(text);
}

void ShellCallsTest::forget() {
  shell_script.calls.clear();
  shell_script.icons.clear();
}

Lines ShellCallsTest::calls_with(const std::string& begin) {
  Lines found;
  for (const std::string& line : shell_script.calls) {
    if (line.starts_with(begin)) found.push_back(line);
  }
  return found;
}

std::string ShellCallsTest::tip() {
  return shell_script.icons.empty() ? "(none)" : narrow(shell_script.icons.back().szTip);
}

namespace {

constexpr UINT_PTR kMenu = 0x5678;
const DWORD test_thread = GetCurrentThreadId();

template <typename... Words>
void note(const char* format, Words... words) {
  char line[400];
  std::snprintf(line, sizeof line, format, words...);
  if (shell_script.on_call) shell_script.on_call(line);
  shell_script.calls.push_back(line);
}

// A name for the key at this path, because a handle does not show which key it is.
const char* key_name(const wchar_t* path) {
  return std::wstring_view(path).ends_with(L"Run") ? "Run" : "settings";
}

LANGID WINAPI user_language() {
  return shell_script.language;
}

BOOL WINAPI notify_icon(DWORD message, NOTIFYICONDATAW* data) {
  note("Shell_NotifyIcon %lu", message);
  shell_script.icons.push_back(*data);
  return FALSE;  // the agent does not check the result
}

HICON WINAPI load_icon(HINSTANCE module, LPCWSTR name) {
  if (module == nullptr) return real<decltype(load_icon)>("user32.dll", "LoadIconW")(module, name);
  note("LoadIcon %d %d", module == GetModuleHandleW(nullptr),
       static_cast<int>(reinterpret_cast<UINT_PTR>(name)));
  return shell_script.icon_resource ? own_icon : nullptr;
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
  return real<decltype(show)>("user32.dll", "ShowWindow")(window, command);
}

HWND WINAPI create_window(DWORD extended, LPCWSTR type, LPCWSTR text, DWORD style, int x, int y, int width,
                          int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter) {
  if (parent != nullptr) {
    note("%lx %s %s %lx %d %d %d %d %d %d %d", extended, narrow(type).c_str(), narrow(text).c_str(), style, x,
         y, width, height, static_cast<int>(reinterpret_cast<UINT_PTR>(menu)),
         instance == GetModuleHandleW(nullptr), parameter != nullptr);
  }
  return real<decltype(create_window)>("user32.dll", "CreateWindowExW")(
      extended, type, text, style, x, y, width, height, parent, menu, instance, parameter);
}

LONG_PTR WINAPI set_window_value(HWND window, int index, LONG_PTR value) {
  note("SetWindowLongPtr %d", index);
  return real<decltype(set_window_value)>("user32.dll", "SetWindowLongPtrW")(window, index, value);
}

HRSRC WINAPI find_resource(HMODULE module, LPCWSTR name, LPCWSTR type) {
  note("FindResource %d %d", static_cast<int>(reinterpret_cast<UINT_PTR>(name)),
       static_cast<int>(reinterpret_cast<UINT_PTR>(type)));
  return real<decltype(find_resource)>("kernel32.dll", "FindResourceW")(module, name, type);
}

BOOL WINAPI add_clipboard_listener(HWND window) {
  note("AddClipboardFormatListener");
  return real<decltype(add_clipboard_listener)>("user32.dll", "AddClipboardFormatListener")(window);
}

void WINAPI post_quit(int code) {
  note("PostQuitMessage %d", code);
  real<decltype(post_quit)>("user32.dll", "PostQuitMessage")(code);
}

std::uintptr_t begin_thread(void* security, unsigned stack, unsigned(__stdcall* start)(void*), void* argument,
                            unsigned flags, unsigned* id) {
  static auto* const system = real<decltype(begin_thread)>("msvcrt.dll", "_beginthreadex");
  const std::uintptr_t thread = system(security, stack, start, argument, flags, id);
  if (GetCurrentThreadId() != test_thread) return thread;
  note("thread");
  HANDLE copy = nullptr;
  DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(thread), GetCurrentProcess(), &copy,
                  SYNCHRONIZE, FALSE, 0);
  shell_script.threads.emplace_back(copy);
  return thread;
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
  return ERROR_ACCESS_DENIED;  // the agent does not check the result
}

LSTATUS WINAPI open_key(HKEY, LPCWSTR, DWORD, REGSAM, HKEY*) {
  return ERROR_FILE_NOT_FOUND;  // the autostart entry does not exist
}

LSTATUS WINAPI close_key(HKEY) {
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace vlk::test

extern "C" {
void* __imp_GetUserDefaultUILanguage = reinterpret_cast<void*>(vlk::test::user_language);
void* __imp_Shell_NotifyIconW = reinterpret_cast<void*>(vlk::test::notify_icon);
void* __imp_LoadIconW = reinterpret_cast<void*>(vlk::test::load_icon);
void* __imp_CreatePopupMenu = reinterpret_cast<void*>(vlk::test::create_menu);
void* __imp_AppendMenuW = reinterpret_cast<void*>(vlk::test::append);
void* __imp_TrackPopupMenu = reinterpret_cast<void*>(vlk::test::track);
void* __imp_DestroyMenu = reinterpret_cast<void*>(vlk::test::destroy_menu);
void* __imp_GetCursorPos = reinterpret_cast<void*>(vlk::test::cursor_position);
void* __imp_SetForegroundWindow = reinterpret_cast<void*>(vlk::test::to_foreground);
void* __imp_ShowWindow = reinterpret_cast<void*>(vlk::test::show);
void* __imp_CreateWindowExW = reinterpret_cast<void*>(vlk::test::create_window);
void* __imp_SetWindowLongPtrW = reinterpret_cast<void*>(vlk::test::set_window_value);
void* __imp_FindResourceW = reinterpret_cast<void*>(vlk::test::find_resource);
void* __imp_AddClipboardFormatListener = reinterpret_cast<void*>(vlk::test::add_clipboard_listener);
void* __imp_PostQuitMessage = reinterpret_cast<void*>(vlk::test::post_quit);
void* __imp__beginthreadex = reinterpret_cast<void*>(vlk::test::begin_thread);
void* __imp_RegCreateKeyExW = reinterpret_cast<void*>(vlk::test::create_key);
void* __imp_RegSetValueExW = reinterpret_cast<void*>(vlk::test::set_value);
void* __imp_RegOpenKeyExW = reinterpret_cast<void*>(vlk::test::open_key);
void* __imp_RegCloseKey = reinterpret_cast<void*>(vlk::test::close_key);
}
