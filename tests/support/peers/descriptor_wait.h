// poll() with a deadline.
#pragma once

#include <chrono>

namespace vantelink_test {

// Waits until the descriptor has one of the events (POLLIN, POLLOUT), an error or a hang-up; false at the
// deadline. Checks once if the deadline has passed.
[[nodiscard]] bool wait_for_descriptor(int descriptor, short events,
                                       std::chrono::steady_clock::time_point deadline);

}  // namespace vantelink_test
