// Helpers for test programs that put a function of their own in the place of a system call: the linker takes
// a program's own import pointer (__imp_NAME) before the import library's.
#pragma once

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <windows.h>

namespace vlk::test {

// The system's own function, for stand-ins that pass a call on.
template <typename Function>
Function* real(const char* library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(library), name)));
}

inline std::string debug_log_path() {
  char folder[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, folder);
  return std::string(folder) + "vlkagent.log";
}

inline void remove_debug_log() {
  std::remove(debug_log_path().c_str());
}

// The log's text with line feeds alone; empty when there is none.
inline std::string debug_log() {
  std::ifstream file(debug_log_path());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace vlk::test
