// Detached threads with the C++ library.
#include "platform/threads/detached_thread.h"

#include <thread>
#include <utility>

namespace vlk {

void start_detached_thread(std::function<void()> work) {
  std::thread(std::move(work)).detach();
}

}  // namespace vlk
