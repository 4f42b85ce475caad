// The debug log: the file "vlkagent.log" in the temporary folder. The file is opened and closed again for
// each line, so that a crash loses no line. If the file cannot be opened, the line is dropped silently.
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

// Writes one line from a printf-style format, which must contain the line feed. Callable on any thread.
void append_debug_log(const char* format, ...) VLK_PRINTF_LIKE;

// True if the environment variable "VLK_DEBUG_INPUT" exists, whatever its value. Looked up at each call.
[[nodiscard]] bool debug_input_requested();

// An optional log for one module. Its lines are written only if debug_input_requested() was true when the
// module logged its first line.
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
