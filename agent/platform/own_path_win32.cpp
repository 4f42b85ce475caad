// The executable's path from GetModuleFileName.
#include "platform/own_path.h"

#include <windows.h>

#include "platform/win32/paths_win32.h"

namespace vlk {

std::wstring quoted_own_path() {
  wchar_t path[kPathSize] = {};
  GetModuleFileNameW(nullptr, path, kPathSize);
  return L'"' + std::wstring(path) + L'"';
}

}  // namespace vlk
