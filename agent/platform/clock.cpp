// The steady clock of the standard library.
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
      [](std::int64_t deadline) {
        const Steady::time_point end{nanoseconds(deadline)};
        // On Windows, the library's sleep_until ends early, because it rounds down to whole milliseconds.
        while (Steady::now() < end)
          std::this_thread::sleep_for(std::chrono::ceil<std::chrono::milliseconds>(end - Steady::now()));
      },
  };
}

}  // namespace vlk
