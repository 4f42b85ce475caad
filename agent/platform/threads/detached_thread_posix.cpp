// Detached threads with the C++ library.
#include "platform/threads/detached_thread.h"

#include <utility>

#include "platform/threads/start_thread.h"

namespace vlk {

void start_detached_thread(std::function<void()> work) {
  start_thread(std::move(work)).detach();
}

}  // namespace vlk
