// Detached threads with the C++ library.
#include <thread>
#include <utility>

#include "platform/threads/detached_thread.h"

namespace vlk {

void start_detached_thread(std::function<void()> work) {
  std::thread(std::move(work)).detach();
}

}  // namespace vlk
