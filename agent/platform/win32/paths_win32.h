// What asking Windows for paths has in common.
#pragma once

#include <string>

#include <windows.h>

namespace vlk {

inline constexpr DWORD kPathSize = 260;  // characters of every buffer for a path, the closing zero included

// The user's folder of temporary files, with a backslash at its end.
inline std::wstring temporary_folder() {
  wchar_t folder[kPathSize] = {};
  GetTempPathW(kPathSize, folder);
  return folder;
}

}  // namespace vlk
