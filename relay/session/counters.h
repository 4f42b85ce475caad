// Events that are counted for the statistics of operators.
#pragma once

#include <cstdint>

#include "relay/net/queue/traffic.h"

namespace vlk::relay {

// Each number counts since the start of the relay. Used on the relay's one thread.
struct Counters {
  Traffic agents;
  Traffic browsers;
  std::uint64_t failed_handshakes = 0;
  // Passwords and codes of people: right ones, wrong ones, and those that were refused without a check,
  // because there were too many.
  std::uint64_t right_log_ins = 0;
  std::uint64_t wrong_log_ins = 0;
  std::uint64_t refused_log_ins = 0;
  std::uint64_t enrolments = 0;
  std::uint64_t refused_enrolments = 0;
};

}  // namespace vlk::relay
