// Repeats poll() after interruptions by signals.
#include "support/peers/descriptor_wait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace vantelink_test {

bool wait_for_descriptor(int descriptor, short events, std::chrono::steady_clock::time_point deadline) {
  using Milliseconds = std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd entry{descriptor, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<Milliseconds::rep>(left, 0)));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

}  // namespace vantelink_test
