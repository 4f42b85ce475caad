// The interval of 20 ms keeps checks cheap that start a process or read a whole log.
#include "support/waiting.h"

#include <thread>

namespace vantelink_test {

bool eventually(const std::function<bool()>& condition, Milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(Milliseconds(20));
  }
  return true;
}

}  // namespace vantelink_test
