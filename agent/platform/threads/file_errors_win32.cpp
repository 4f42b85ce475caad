// Sets the error mode of a thread.
#include "platform/threads/file_errors.h"

#include <windows.h>

namespace vlk {

void disable_file_error_boxes() {
  SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, nullptr);
}

}  // namespace vlk
