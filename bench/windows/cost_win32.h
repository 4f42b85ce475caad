// The cost of a step: its wall time and its CPU time.
#pragma once

#include <windows.h>

namespace vantelink_bench {

inline constexpr int kRounds = 150;  // the number of calls of each step

// Milliseconds.
struct Cost {
  double wall = 0, cpu = 0;
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

}  // namespace vantelink_bench
