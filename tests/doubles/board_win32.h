// Maps a board's file into a Windows process.
#pragma once

#include <windows.h>

namespace vantelink_doubles {

// Maps the board in the file that the environment variable names, until the process ends, and returns it.
// Returns `own` if the file cannot be mapped.
template <typename Board>
Board& map_board(const char* variable, Board& own) {
  char path[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableA(variable, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return own;
  const HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return own;
  const HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, sizeof(Board), nullptr);
  CloseHandle(file);
  if (mapping == nullptr) return own;
  void* const view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Board));
  CloseHandle(mapping);
  return view == nullptr ? own : *static_cast<Board*>(view);
}

}  // namespace vantelink_doubles
