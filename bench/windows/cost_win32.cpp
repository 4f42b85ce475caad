// Reads the clocks of threads and of the process.
#include "bench/windows/cost_win32.h"

#include <chrono>
#include <cstdint>

namespace vantelink_bench {
namespace {

constexpr double kMillisecond = 10000;  // one millisecond in the thread clock's units of 100 ns

// The CPU time of a thread or process, in the kernel and in user mode together. `get_times` is GetThreadTimes
// or GetProcessTimes.
template <typename GetTimes>
double cpu_milliseconds(GetTimes get_times, HANDLE of) {
  FILETIME created, ended, kernel, user;
  get_times(of, &created, &ended, &kernel, &user);
  const auto count = [](const FILETIME& time) {
    return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  };
  return (count(kernel) + count(user)) / kMillisecond;
}

}  // namespace

double thread_milliseconds(HANDLE thread) {
  return cpu_milliseconds(GetThreadTimes, thread);
}

double process_milliseconds() {
  return cpu_milliseconds(GetProcessTimes, GetCurrentProcess());
}

double wall_milliseconds() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace vantelink_bench
