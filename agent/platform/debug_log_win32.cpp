// The debug log in the user's temporary folder.
#include "platform/debug_log.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/files/unique_stream.h"
#include "platform/win32/paths_win32.h"

namespace vlk {
namespace {

constexpr char kLogName[] = "vlkagent.log";

}  // namespace

void append_debug_log(const char* format, ...) {
  char path[kPathSize] = {};
  GetTempPathA(kPathSize, path);
  if (std::strlen(path) + sizeof(kLogName) > sizeof(path)) return;
  std::strcat(path, kLogName);
  const UniqueStream file(std::fopen(path, "a"));
  if (!file) return;
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(file.get(), format, arguments);
  va_end(arguments);
}

bool debug_input_requested() {
  return std::getenv("VLK_DEBUG_INPUT") != nullptr;
}

}  // namespace vlk
