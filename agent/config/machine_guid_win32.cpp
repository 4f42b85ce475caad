// The machine's identifier from the registry.
#include "config/machine_guid.h"

#include "platform/win32/handles_win32.h"
#include "platform/win32/registry_win32.h"

namespace vlk::agent {

std::string read_machine_guid() {
  HKEY opened = nullptr;
  // Always reads the 64-bit view of the registry, so that Windows does not redirect the read to another copy
  // of the key.
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", 0,
                    KEY_QUERY_VALUE | KEY_WOW64_64KEY, &opened) != ERROR_SUCCESS) {
    return {};
  }
  const UniqueRegistryKey key(opened);
  return read_registry_string(key.get(), L"MachineGuid");
}

}  // namespace vlk::agent
