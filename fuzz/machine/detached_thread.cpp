// Implements detached threads in place of platform/threads/detached_thread_posix.cpp: the work runs at once,
// on the calling thread, so that each run of an input makes the same calls in the same order.
#include "platform/threads/detached_thread.h"

#include <utility>

namespace vlk {

void start_detached_thread(std::function<void()> work) {
  const std::function<void()> own = std::move(work);  // as the thread would own it
  own();
}

}  // namespace vlk
