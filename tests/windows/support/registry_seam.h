// Registry calls that fail on demand, else reach the real registry.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "platform/win32/handles_win32.h"

namespace vlk::test {

struct RegistryScript {
  bool fail_open = false, fail_create = false, fail_set = false;
  std::vector<std::wstring> written_names;  // names of the written values, in the order of the calls
};
extern RegistryScript registry;

// A key of the current user, created if missing, with all rights.
UniqueRegistryKey user_key(const wchar_t* path);

}  // namespace vlk::test
