// The steady clock by way of the standard library.
#include "platform/clock.h"

#include <chrono>
#include <thread>

namespace vlk {

Clock steady_clock() {
  using std::chrono::nanoseconds;
  using Steady = std::chrono::steady_clock;
  return {
      [] {
        return std::int64_t{
            std::chrono::duration_cast<nanoseconds>(Steady::now().time_since_epoch()).count()};
      },
      [](std::int64_t deadline) { std::this_thread::sleep_until(Steady::time_point(nanoseconds(deadline))); },
  };
}

}  // namespace vlk
