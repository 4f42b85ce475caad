// The steady clock and its sleep as values, so that logic which paces itself can be run on a clock of a
// test's own.
#pragma once

#include <cstdint>
#include <functional>

namespace vlk {

struct Clock {
  std::function<std::int64_t()> now;  // nanoseconds from an arbitrary, fixed point; never goes back
  std::function<void(std::int64_t)> sleep_until;  // blocks until now() has reached the argument, never less
};

// The system's steady clock. Both members may be called from any thread.
Clock steady_clock();

}  // namespace vlk
