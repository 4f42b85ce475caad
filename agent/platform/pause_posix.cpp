// A pause by the standard library.
#include "platform/pause.h"

#include <chrono>
#include <thread>

namespace vlk {

void pause_for(std::int64_t nanoseconds) {
  std::this_thread::sleep_for(std::chrono::nanoseconds(nanoseconds));
}

}  // namespace vlk
