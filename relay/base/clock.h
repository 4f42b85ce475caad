// The clocks of the relay: one for time limits, one for stored dates.
#pragma once

#include <chrono>
#include <cstdint>

namespace vlk::relay {

// Measures time limits; unaffected by changes of the system's date.
using Clock = std::chrono::steady_clock;

// The current date in seconds since 1970, for the database and the console.
[[nodiscard]] inline std::int64_t wall_seconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The current date in milliseconds since 1970, for the trail.
[[nodiscard]] inline std::int64_t wall_milliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace vlk::relay
