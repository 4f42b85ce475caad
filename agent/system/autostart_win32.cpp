// The autostart entry: a value of the current user's Run key.
#include "system/autostart.h"

#include <string>

#include "platform/own_path.h"
#include "platform/win32/handles_win32.h"

namespace vlk::agent {
namespace {

constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t kValueName[] = L"VantelinkAgent";

UniqueRegistryKey open_run_key(REGSAM access) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kRunKey, 0, access, &key) != ERROR_SUCCESS) return nullptr;
  return UniqueRegistryKey(key);
}

}  // namespace

bool autostart_exists() {
  const UniqueRegistryKey key = open_run_key(KEY_QUERY_VALUE);
  if (!key) return false;
  return RegQueryValueExW(key.get(), kValueName, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool add_autostart() {
  HKEY opened = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, kRunKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr) !=
      ERROR_SUCCESS) {
    return false;
  }
  const UniqueRegistryKey key(opened);
  const std::wstring command = quoted_own_path() + L" --unattended";
  const auto bytes = static_cast<DWORD>((command.size() + 1) * sizeof(wchar_t));
  return RegSetValueExW(key.get(), kValueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(command.c_str()),
                        bytes) == ERROR_SUCCESS;
}

bool remove_autostart() {
  const UniqueRegistryKey key = open_run_key(KEY_SET_VALUE);
  if (key) RegDeleteValueW(key.get(), kValueName);
  return true;
}

}  // namespace vlk::agent
