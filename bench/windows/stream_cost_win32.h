// The cost of the whole stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "bench/windows/cost_win32.h"
#include "bench/windows/loopback_link_win32.h"

namespace vantelink_bench {

inline constexpr int kQuality = 70;
inline constexpr std::int32_t kBitrate = 6000000;

struct StreamCost {
  double frames_per_second = 0;
  Cost frame;
  std::string announced;  // the stream's configuration message
};

// Runs the agent's stream of the first monitor without a limit of its rate, and returns the average cost of
// `frames` frames, with the CPU time of all threads but the link's server. Returns no value if frames stay
// away.
std::optional<StreamCost> cost_of_stream(LoopbackLink& link, const char* codec, int frames = 300);

}  // namespace vantelink_bench
