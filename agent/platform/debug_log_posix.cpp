// The debug log of a native build, in the folder that TMPDIR names.
#include "platform/debug_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/files/unique_stream.h"

namespace vlk {

void append_debug_log(const char* format, ...) {
  const char* const folder = std::getenv("TMPDIR");
  const std::string path = std::string(folder != nullptr ? folder : "/tmp") + "/vlkagent.log";
  const UniqueStream file(std::fopen(path.c_str(), "a"));
  if (!file) return;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(file.get(), format, arguments);
  va_end(arguments);
}

bool debug_input_requested() {
  return std::getenv("VLK_DEBUG_INPUT") != nullptr;
}

}  // namespace vlk
