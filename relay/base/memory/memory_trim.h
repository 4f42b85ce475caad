// Gives the memory of connections that have ended to the system, which the allocator would keep.
#pragma once

#include <malloc.h>

#include <chrono>
#include <cstddef>

#include "relay/base/clock.h"

namespace vlk::relay {

// Used on the relay's one thread.
class MemoryTrim {
 public:
  // To be called often. `ended` is the number of connections that have ended so far.
  void tick(Clock::time_point now, std::size_t ended) {
    if (now - last_ < kPause || ended - ended_at_last_ < kEnds) return;
    last_ = now;
    ended_at_last_ = ended;
    ::malloc_trim(0);
  }

 private:
  // After how many ended connections it is worth the time, and how often at most.
  static constexpr std::size_t kEnds = 100;
  static constexpr std::chrono::seconds kPause{5};

  Clock::time_point last_{};
  std::size_t ended_at_last_ = 0;
};

}  // namespace vlk::relay
