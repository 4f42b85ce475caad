// When something was painted on the screen, and when a viewer had it in its picture. All times are those of
// the one monotonic clock of this machine.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// A number, painted or seen, and the time.
struct Moment {
  std::uint32_t number = 0;
  Clock::time_point time{};
};

}  // namespace vantelink_bench
