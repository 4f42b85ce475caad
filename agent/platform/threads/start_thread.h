// Threads of the C++ library whose file calls show no message boxes.
#pragma once

#include <thread>
#include <utility>

#include "platform/threads/file_errors.h"

namespace vlk {

// Runs `work` on a new thread, which the caller joins or detaches. Throws std::system_error if no thread
// can be created.
template <typename Work>
[[nodiscard]] std::thread start_thread(Work work) {
  return std::thread([work = std::move(work)] {
    disable_file_error_boxes();
    work();
  });
}

}  // namespace vlk
