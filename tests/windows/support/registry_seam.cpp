// The replaced registry calls.
#include "tests/windows/support/registry_seam.h"

#include "tests/windows/support/seam.h"

namespace vlk::test {
namespace {

LSTATUS WINAPI open_key(HKEY key, LPCWSTR name, DWORD options, REGSAM access, PHKEY result) {
  static auto* const system = real<decltype(open_key)>("advapi32.dll", "RegOpenKeyExW");
  return registry.fail_open ? ERROR_ACCESS_DENIED : system(key, name, options, access, result);
}

LSTATUS WINAPI create_key(HKEY key, LPCWSTR name, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                          LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition) {
  static auto* const system = real<decltype(create_key)>("advapi32.dll", "RegCreateKeyExW");
  if (registry.fail_create) return ERROR_ACCESS_DENIED;
  return system(key, name, reserved, type, options, access, security, result, disposition);
}

LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
  static auto* const system = real<decltype(set_value)>("advapi32.dll", "RegSetValueExW");
  registry.written_names.emplace_back(name);
  return registry.fail_set ? ERROR_ACCESS_DENIED : system(key, name, reserved, type, data, size);
}

}  // namespace

RegistryScript registry;

UniqueRegistryKey user_key(const wchar_t* path) {
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
  return UniqueRegistryKey(key);
}

}  // namespace vlk::test

extern "C" {
void* __imp_RegOpenKeyExW = reinterpret_cast<void*>(vlk::test::open_key);
void* __imp_RegCreateKeyExW = reinterpret_cast<void*>(vlk::test::create_key);
void* __imp_RegSetValueExW = reinterpret_cast<void*>(vlk::test::set_value);
}
