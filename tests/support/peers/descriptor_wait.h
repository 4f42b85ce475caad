// poll() with a deadline.
#pragma once

#include <chrono>

namespace vantelink_test {

// Waits until the descriptor has one of the events (POLLIN, POLLOUT), an error or a hang-up. Returns false at
// the deadline. If the deadline has already passed, checks once.
[[nodiscard]] bool wait_for_descriptor(int descriptor, short events,
                                       std::chrono::steady_clock::time_point deadline);

}  // namespace vantelink_test
