// Paths from the Windows API.
#pragma once

#include <windows.h>

#include <string>

namespace vlk {

inline constexpr DWORD kPathSize = 260;  // characters of every path buffer, including the terminating zero

// The user's folder for temporary files, with a backslash at its end.
[[nodiscard]] inline std::wstring temporary_folder() {
  wchar_t folder[kPathSize] = {};
  GetTempPathW(kPathSize, folder);
  return folder;
}

}  // namespace vlk
