// The executable's path from the system's list of modules.
#include <windows.h>

#include "platform/own_path.h"
#include "platform/win32/paths_win32.h"

namespace vlk {

std::wstring quoted_own_path() {
  wchar_t path[kPathSize] = {};
  GetModuleFileNameW(nullptr, path, kPathSize);
  return L'"' + std::wstring(path) + L'"';
}

}  // namespace vlk
