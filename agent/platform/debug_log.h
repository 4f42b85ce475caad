// The debug log: the file "vlkagent.log" in the temporary folder. Each line opens the file, appends and
// closes it, so that a crash loses none. A file that cannot be opened drops the line without a word.
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

// Writes one line by a printf-style format, which brings its own line feed. Callable from any thread.
void append_debug_log(const char* format, ...) VLK_PRINTF_LIKE;

// True if the environment variable "VLK_DEBUG_INPUT" exists, whatever its value. Looked up at each call;
// callers that are asked to remember the answer do so themselves.
bool debug_input_requested();

// One module's own answer to that question, looked up at its first line and kept for the life of the process.
class DebugLogGate {
 public:
  bool open() {
    if (state_ < 0) state_ = debug_input_requested() ? 1 : 0;
    return state_ != 0;
  }

 private:
  std::atomic<std::int32_t> state_{-1};  // not yet looked up, then 0 or 1
};

}  // namespace vlk
