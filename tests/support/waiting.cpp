// Polls the condition.
#include "support/waiting.h"

#include <thread>

namespace vantelink_test {
namespace {

// Conditions often start a process or read a whole log, so they are not checked more often.
constexpr Milliseconds kInterval{20};

}  // namespace

bool eventually(const std::function<bool()>& condition, Milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kInterval);
  }
  return true;
}

}  // namespace vantelink_test
