// The relay's status for the console's page of it.
#pragma once

#include <cstdint>

#include <nlohmann/json_fwd.hpp>

#include "relay/metrics/readings.h"

namespace vlk::relay {

// docs/console-protocol.md lists the members. `started` and `now` are dates in seconds since 1970. To be
// called on the relay's thread.
[[nodiscard]] nlohmann::json status_json(const Sources& sources, std::int64_t started, std::int64_t now);

}  // namespace vlk::relay
