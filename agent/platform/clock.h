// A clock and its sleep function as values, so that a test can run time-dependent code on its own clock.
#pragma once

#include <cstdint>
#include <functional>

namespace vlk {

struct Clock {
  std::function<std::int64_t()> now;  // nanoseconds from an arbitrary, fixed point; never decreases
  std::function<void(std::int64_t)> sleep_until;  // blocks until now() has reached the argument
};

// The system's steady clock. Both members are callable on any thread.
[[nodiscard]] Clock steady_clock();

}  // namespace vlk
