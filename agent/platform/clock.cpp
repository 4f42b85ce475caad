// The steady clock of the standard library, with sleeps that never end early.
#include "platform/clock.h"

#include <chrono>

#include "platform/pause.h"

namespace vlk {

Clock steady_clock() {
  using std::chrono::nanoseconds;
  using Steady = std::chrono::steady_clock;
  return {
      [] {
        return std::int64_t{
            std::chrono::duration_cast<nanoseconds>(Steady::now().time_since_epoch()).count()};
      },
      [](std::int64_t deadline) {
        const Steady::time_point end{nanoseconds(deadline)};
        for (auto now = Steady::now(); now < end; now = Steady::now())
          pause_for(std::chrono::duration_cast<nanoseconds>(end - now).count());
      },
  };
}

}  // namespace vlk
