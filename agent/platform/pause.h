// The primitive of a sleep. The clock calls it again until the time of waking has come.
#pragma once

#include <cstdint>

namespace vlk {

// Blocks the thread for about so many nanoseconds, with the system's finest resolution. May return early or
// late.
void pause_for(std::int64_t nanoseconds);

}  // namespace vlk
