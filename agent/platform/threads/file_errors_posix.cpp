// File errors of a host that shows no message boxes.
#include "platform/threads/file_errors.h"

namespace vlk {

void disable_file_error_boxes() {}

}  // namespace vlk
