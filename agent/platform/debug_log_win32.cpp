// The debug log in the user's temporary folder.
#include "platform/debug_log.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace vlk {
namespace {

constexpr char kLogName[] = "vlkagent.log";
constexpr DWORD kPathSize = 260;  // bytes, the name and the closing zero included

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

void append_debug_log(const char* format, ...) {
  char path[kPathSize] = {};
  GetTempPathA(kPathSize, path);
  if (std::strlen(path) + sizeof(kLogName) > sizeof(path)) return;
  std::strcat(path, kLogName);
  const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path, "a"));
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
