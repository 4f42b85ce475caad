// Reads and writes strings in the registry.
#include "platform/win32/registry_win32.h"

#include "platform/text.h"

namespace vlk {

std::string read_registry_string(HKEY key, const wchar_t* name) {
  DWORD type = 0;
  DWORD bytes = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS) return {};
  if (type != REG_SZ) return {};
  std::wstring text(bytes / sizeof(wchar_t), L'\0');
  bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &bytes);
  // One zero at the end is the terminator. Any zero before it belongs to the value.
  if (!text.empty() && text.back() == L'\0') text.pop_back();
  return WideToUtf8(text);
}

void write_registry_string(HKEY key, const wchar_t* name, const std::string& text) {
  const std::wstring wide = Utf8ToWide(text);
  const auto bytes = static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t));
  RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()), bytes);
}

}  // namespace vlk
