// The metrics of the relay.
#pragma once

#include <string>

#include "relay/metrics/readings.h"

namespace vlk::relay {

// All metrics as Prometheus' text. `started` and `now` are dates in seconds since 1970. No label names a
// machine or a person. To be called on the relay's thread.
[[nodiscard]] std::string metrics_text(const Sources& sources, std::int64_t started, std::int64_t now);

}  // namespace vlk::relay
