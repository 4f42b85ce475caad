// The machine's identity from the registry.
#include "core/machine_guid.h"

#include <windows.h>

#include "platform/text.h"

namespace vlk::agent {

std::string read_machine_guid() {
  HKEY key = nullptr;
  // The 64-bit view in any case, so that no redirected copy is read.
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", 0,
                    KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) {
    return {};
  }
  std::wstring text;
  DWORD type = 0;
  DWORD size = 0;
  if (RegQueryValueExW(key, L"MachineGuid", nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
      type == REG_SZ) {
    text.resize(size / sizeof(wchar_t));
    RegQueryValueExW(key, L"MachineGuid", nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &size);
  }
  RegCloseKey(key);
  if (!text.empty() && text.back() == L'\0') text.pop_back();
  return WideToUtf8(text);
}

}  // namespace vlk::agent
