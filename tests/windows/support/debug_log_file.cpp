// Reads and removes the debug log in the temporary folder.
#include "tests/windows/support/debug_log_file.h"

#include <windows.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace vlk::test {

std::string debug_log_path() {
  char folder[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, folder);
  return std::string(folder) + "vlkagent.log";
}

void remove_debug_log() {
  std::remove(debug_log_path().c_str());
}

std::string debug_log() {
  std::ifstream file(debug_log_path());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace vlk::test
