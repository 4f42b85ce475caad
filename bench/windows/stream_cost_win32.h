// The cost of a step of the stream and of the whole stream, as wall time and CPU time.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "bench/loopback_link_win32.h"

namespace vantelink_bench {

inline constexpr int kQuality = 70;
inline constexpr int kRounds = 150;  // the number of calls of each step

// Milliseconds.
struct Cost {
  double wall = 0, cpu = 0;
};

struct StreamCost {
  double frames_per_second = 0;
  Cost frame;
  std::string announced;  // the stream's configuration message
};

double wall_milliseconds();
double thread_milliseconds(HANDLE thread);
double process_milliseconds();

// The average cost of `rounds` calls, with the CPU time of the calling thread.
template <typename Step>
Cost cost_of(Step step, int rounds = kRounds) {
  const double wall = wall_milliseconds(), own = thread_milliseconds(GetCurrentThread());
  for (int round = 0; round < rounds; ++round)
    step();
  return {(wall_milliseconds() - wall) / rounds, (thread_milliseconds(GetCurrentThread()) - own) / rounds};
}

// Runs the agent's stream of the first monitor without a limit of its rate, and returns the average cost of
// `frames` frames, with the CPU time of all threads but the link's server. Returns no value if frames stay
// away.
std::optional<StreamCost> cost_of_stream(LoopbackLink& link, const char* codec, int frames = 300);

}  // namespace vantelink_bench
