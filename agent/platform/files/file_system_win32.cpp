// Folders and files with the Windows API.
#include "platform/files/file_system.h"

#include <windows.h>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {

std::uint32_t LogicalDrives() {
  return GetLogicalDrives();
}

void VisitFolder(const std::wstring& pattern, const std::function<void(const FolderEntry&)>& visit) {
  WIN32_FIND_DATAW found;
  const HANDLE handle = FindFirstFileW(pattern.c_str(), &found);
  if (handle == INVALID_HANDLE_VALUE) return;
  const UniqueFind search(handle);
  do {
    const std::uint64_t last_write =
        std::uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32 | found.ftLastWriteTime.dwLowDateTime;
    visit({found.cFileName, found.dwFileAttributes, found.nFileSizeHigh, found.nFileSizeLow, last_write});
  } while (FindNextFileW(search.get(), &found));
}

void CreateFolder(const std::wstring& path) {
  CreateDirectoryW(path.c_str(), nullptr);
}

UniqueStream OpenFile(const std::wstring& path, const wchar_t* mode) {
  return UniqueStream(_wfopen(path.c_str(), mode));
}

}  // namespace vlk::agent
