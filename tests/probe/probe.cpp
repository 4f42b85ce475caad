// Inspects and operates a desk's windows, registry and clipboard for tests that run on the host. Prints
// UTF-8, one window or value per line, with fields separated by tabs.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/text.h"
#include "platform/win32/handles_win32.h"
#include "support/bytes/file_bytes.h"

namespace {

constexpr UINT kAnswerTime = 30000;  // milliseconds; longest wait for another process
constexpr wchar_t kAgentClass[] = L"VantelinkAgent";
constexpr wchar_t kSettingsKey[] = L"Software\\Maravek\\Vantelink";
constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

// Sends a message and returns the answer, or 0 for a destroyed window. Ends the probe if the window exists
// but does not answer.
LRESULT ask(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  DWORD_PTR answer = 0;
  if (!SendMessageTimeoutW(window, message, wparam, lparam, SMTO_NORMAL, kAnswerTime, &answer) &&
      IsWindow(window)) {
    std::fprintf(stderr, "a window does not answer message 0x%X\n", message);
    std::exit(1);
  }
  return static_cast<LRESULT>(answer);
}

// The text in UTF-8, with tabs and line ends escaped.
std::string printable(std::wstring_view text) {
  std::string result;
  for (const char c : vlk::WideToUtf8(text)) {
    switch (c) {
      case '\t':
        result += "\\t";
        break;
      case '\r':
        result += "\\r";
        break;
      case '\n':
        result += "\\n";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::wstring class_of(HWND window) {
  wchar_t name[256] = {};
  GetClassNameW(window, name, 256);
  return name;
}

// Gets the text by a message, because GetWindowText does not return the text of a control in another process.
std::wstring text_of(HWND window) {
  std::vector<wchar_t> text(100000);
  ask(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  return text.data();
}

// Prints one window. Its position is relative to the parent's client area for a child and to the screen for a
// top-level window. The position on the screen follows in both cases.
void print_window(HWND window, HWND parent) {
  RECT screen = {};
  GetWindowRect(window, &screen);
  POINT place = {screen.left, screen.top};
  if (parent != nullptr) ScreenToClient(parent, &place);
  const bool button = class_of(window) == L"Button";
  std::printf("%d\t%s\t%d\t0x%08X\t0x%08X\t%d\t%d\t%d\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%s\n", parent != nullptr,
              printable(class_of(window)).c_str(),
              parent != nullptr ? static_cast<int>(GetWindowLongPtrW(window, GWLP_ID)) : 0,
              static_cast<unsigned>(GetWindowLongPtrW(window, GWL_STYLE)),
              static_cast<unsigned>(GetWindowLongPtrW(window, GWL_EXSTYLE)), IsWindowVisible(window) != FALSE,
              GetForegroundWindow() == window, button ? static_cast<int>(ask(window, BM_GETCHECK, 0, 0)) : 0,
              place.x, place.y, screen.right - screen.left, screen.bottom - screen.top, screen.left,
              screen.top, printable(text_of(window)).c_str());
}

// Prints every top-level window of these classes, from the top of the Z order down, each followed by its
// children.
int print_windows(const std::vector<std::wstring>& classes) {
  for (HWND window = GetTopWindow(nullptr); window != nullptr; window = GetWindow(window, GW_HWNDNEXT)) {
    const std::wstring type = class_of(window);
    bool wanted = false;
    for (const std::wstring& name : classes)
      wanted = wanted || type == name;
    if (!wanted) continue;
    print_window(window, nullptr);
    for (HWND child = nullptr; (child = FindWindowExW(window, child, nullptr, nullptr)) != nullptr;)
      print_window(child, window);
  }
  return 0;
}

int print_value(HKEY root, const wchar_t* path, const wchar_t* name) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(root, path, 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) return 0;
  const vlk::UniqueRegistryKey key(opened);
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExW(key.get(), name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return 0;
  std::vector<BYTE> data(size + sizeof(wchar_t));
  RegQueryValueExW(key.get(), name, nullptr, &type, data.data(), &size);
  std::string text;
  if (type == REG_SZ) {
    // The stored terminator is not printed; further zero characters are.
    std::wstring_view wide(reinterpret_cast<const wchar_t*>(data.data()), size / sizeof(wchar_t));
    if (!wide.empty() && wide.back() == L'\0') wide.remove_suffix(1);
    text = printable(wide);
  } else {
    for (DWORD i = 0; i < size; ++i) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", data[i]);
      text += digits;
    }
  }
  std::printf("%s\t%lu\t%s\n", vlk::WideToUtf8(name).c_str(), type, text.c_str());
  return 0;
}

int print_registry() {
  for (const wchar_t* name : {L"DisplayName", L"Unattended", L"AgentId", L"AgentSecret", L"SkippedVersion"})
    print_value(HKEY_CURRENT_USER, kSettingsKey, name);
  return print_value(HKEY_CURRENT_USER, kRunKey, L"VantelinkAgent");
}

// Deletes the agent's settings and its autostart entry.
int forget() {
  RegDeleteKeyW(HKEY_CURRENT_USER, kSettingsKey);
  RegDeleteKeyValueW(HKEY_CURRENT_USER, kRunKey, L"VantelinkAgent");
  return 0;
}

int print_class_at(const wchar_t* x, const wchar_t* y) {
  const HWND window = WindowFromPoint({std::wcstol(x, nullptr, 10), std::wcstol(y, nullptr, 10)});
  std::printf("%s\n", printable(class_of(GetAncestor(window, GA_ROOT))).c_str());
  return 0;
}

// Opens the file so that it cannot be replaced or deleted, creates `marker`, and waits until the process is
// killed.
int hold(const wchar_t* path, const wchar_t* marker) {
  const vlk::UniqueKernelHandle file(
      CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  if (file.get() == INVALID_HANDLE_VALUE) return 1;
  const vlk::UniqueKernelHandle done(
      CreateFileW(marker, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  Sleep(INFINITE);
  return 0;
}

// Runs a program with the Administrators group set to deny only, like Windows does for a user without
// elevation. Returns its exit status.
int run_without_elevation(std::wstring command_line) {
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof sid;
  CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size);
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &opened)) return 1;
  const vlk::UniqueKernelHandle token(opened);
  SID_AND_ATTRIBUTES deny_only = {sid, 0};
  HANDLE made = nullptr;
  if (!CreateRestrictedToken(token.get(), 0, 1, &deny_only, 0, nullptr, 0, nullptr, &made)) return 1;
  const vlk::UniqueKernelHandle restricted(made);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  if (!CreateProcessAsUserW(restricted.get(), nullptr, command_line.data(), nullptr, nullptr, FALSE, 0,
                            nullptr, nullptr, &startup, &started)) {
    return 1;
  }
  const vlk::UniqueKernelHandle process(started.hProcess);
  const vlk::UniqueKernelHandle thread(started.hThread);
  WaitForSingleObject(process.get(), INFINITE);
  DWORD status = 1;
  GetExitCodeProcess(process.get(), &status);
  return static_cast<int>(status);
}

// Opens the clipboard for a window of this process until the object is destroyed.
class OpenClipboardHere {
 public:
  OpenClipboardHere()
      : window_(CreateWindowExW(0, L"Static", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr)) {
    // Another process may have the clipboard open for a moment.
    const ULONGLONG deadline = GetTickCount64() + kAnswerTime;
    while (!(opened_ = OpenClipboard(window_) != FALSE) && GetTickCount64() < deadline)
      Sleep(1);
  }
  ~OpenClipboardHere() {
    if (opened_) CloseClipboard();
    DestroyWindow(window_);
  }
  OpenClipboardHere(const OpenClipboardHere&) = delete;
  OpenClipboardHere& operator=(const OpenClipboardHere&) = delete;
  explicit operator bool() const { return opened_; }

 private:
  const HWND window_;
  bool opened_ = false;
};

// Replaces the clipboard's content with the file's bytes in one format.
int copy(UINT format, const std::filesystem::path& path) {
  const std::string bytes = vantelink_test::file_bytes(path);
  const OpenClipboardHere clipboard;
  if (!clipboard || !EmptyClipboard()) return 1;
  vlk::UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, bytes.size()));
  std::memcpy(vlk::LockedGlobal(memory.get()).get(), bytes.data(), bytes.size());
  return SetClipboardData(format, memory.release()) != nullptr ? 0 : 1;
}

// Writes the clipboard's content in this format to the file. The file is empty if there is no such content.
int paste(UINT format, const std::filesystem::path& path) {
  const OpenClipboardHere clipboard;
  if (!clipboard) return 1;
  std::ofstream file(path, std::ios::binary);
  const HGLOBAL memory = GetClipboardData(format);
  if (memory == nullptr) return 0;
  const vlk::LockedGlobal block(memory);
  file.write(static_cast<const char*>(block.get()), static_cast<std::streamsize>(GlobalSize(memory)));
  return 0;
}

// Changes the resolution of the screen. Returns 0 if the system accepts it.
int resize_display(const wchar_t* width, const wchar_t* height) {
  DEVMODEW mode = {};
  mode.dmSize = sizeof mode;
  mode.dmPelsWidth = static_cast<DWORD>(std::wcstoul(width, nullptr, 10));
  mode.dmPelsHeight = static_cast<DWORD>(std::wcstoul(height, nullptr, 10));
  mode.dmFields = DM_PELSWIDTH | DM_PELSHEIGHT;
  return ChangeDisplaySettingsW(&mode, 0) == DISP_CHANGE_SUCCESSFUL ? 0 : 1;
}

int usage() {
  std::fputs(
      "Usage: probe windows CLASS...   the top-level windows of these classes and their children\n"
      "       probe at X Y             the class of the top-level window at a pixel of the screen\n"
      "       probe display WIDTH HEIGHT   changes the resolution of the screen\n"
      "       probe type ID TEXT       sets the text of one of the agent's controls\n"
      "       probe post MESSAGE WPARAM LPARAM   posts a message to the agent's window\n"
      "       probe registry           the agent's settings and its autostart entry\n"
      "       probe forget             deletes the settings and the autostart entry\n"
      "       probe lower COMMANDLINE  runs a program without elevation; exits with its status\n"
      "       probe copy FORMAT FILE   replaces the clipboard's content with the file's bytes\n"
      "       probe paste FORMAT FILE  writes the clipboard's content in this format to FILE\n"
      "       probe hold FILE MARKER   opens FILE, creates MARKER, and keeps FILE open until killed\n",
      stderr);
  return 2;
}

}  // namespace

int wmain(int count, wchar_t** words) {
  const std::wstring verb = count > 1 ? words[1] : L"";
  const HWND agent = FindWindowW(kAgentClass, nullptr);
  if (verb == L"windows" && count > 2) return print_windows({words + 2, words + count});
  if (verb == L"at" && count == 4) return print_class_at(words[2], words[3]);
  if (verb == L"display" && count == 4) return resize_display(words[2], words[3]);
  if (verb == L"registry" && count == 2) return print_registry();
  if (verb == L"forget" && count == 2) return forget();
  if (verb == L"lower" && count == 3) return run_without_elevation(words[2]);
  if (verb == L"hold" && count == 4) return hold(words[2], words[3]);
  if (verb == L"copy" && count == 4)
    return copy(static_cast<UINT>(std::wcstoul(words[2], nullptr, 10)), words[3]);
  if (verb == L"paste" && count == 4)
    return paste(static_cast<UINT>(std::wcstoul(words[2], nullptr, 10)), words[3]);
  if (verb == L"type" && count == 4) {
    const HWND control = GetDlgItem(agent, static_cast<int>(std::wcstol(words[2], nullptr, 10)));
    return ask(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(words[3])) == TRUE ? 0 : 1;
  }
  if (verb == L"post" && count == 5) {
    return PostMessageW(agent, static_cast<UINT>(std::wcstoul(words[2], nullptr, 0)),
                        std::wcstoull(words[3], nullptr, 0), std::wcstoll(words[4], nullptr, 0))
               ? 0
               : 1;
  }
  return usage();
}
