// What has passed the connections of the agents, or of the browsers, for the statistics of operators.
#pragma once

#include <cstdint>

#include "relay/base/counting/duration_counts.h"

namespace vlk::relay {

// Used on the relay's one thread.
struct Traffic {
  struct Flow {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
  };
  struct Direction {
    Flow pictures;
    Flow bulk;  // files, and other messages of the bulk lane
    Flow others;
  };
  Direction in;
  Direction out;
  std::uint64_t dropped_pictures = 0;  // because their viewer reads too slowly
  DurationCounts waited;               // of the pictures that were written: their time in the queue
};

}  // namespace vlk::relay
