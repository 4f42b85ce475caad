// The debug log: the file "vlkagent.log" in the temporary folder. Each line opens the file, appends and
// closes it, so that a crash loses no line. A line is dropped silently if the file cannot be opened.
#pragma once

#include <atomic>
#include <cstdint>

namespace vlk {

#if defined(__MINGW32__)
#define VLK_PRINTF_LIKE __attribute__((format(gnu_printf, 1, 2)))
#elif defined(__GNUC__)
#define VLK_PRINTF_LIKE __attribute__((format(printf, 1, 2)))
#else
#define VLK_PRINTF_LIKE
#endif

// Writes one line by a printf-style format, which includes the line feed. Callable on any thread.
void append_debug_log(const char* format, ...) VLK_PRINTF_LIKE;

// True if the environment variable "VLK_DEBUG_INPUT" exists, whatever its value. Looked up at each call.
[[nodiscard]] bool debug_input_requested();

// One module's lines that are written only if debug_input_requested. The module looks it up at its first line
// and keeps the answer for the life of the process.
class OptionalDebugLog {
 public:
  template <typename... Arguments>
  void write(const char* format, Arguments... arguments) {
    if (state_ < 0) state_ = debug_input_requested() ? 1 : 0;
    if (state_ != 0) append_debug_log(format, arguments...);
  }

 private:
  std::atomic<std::int32_t> state_{-1};  // -1 before the look-up, then 0 or 1
};

}  // namespace vlk
