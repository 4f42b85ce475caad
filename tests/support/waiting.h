// Waits with a deadline, for tests that watch another thread or process.
#pragma once

#include <chrono>
#include <functional>

namespace vantelink_test {

using Milliseconds = std::chrono::milliseconds;

// The default timeout of every wait. A wait that reaches it makes its test fail with a message that says what
// did not happen.
inline constexpr Milliseconds kPatience{40000};

// Checks the condition repeatedly until it is true, and then returns true. Returns false at the timeout.
[[nodiscard]] bool eventually(const std::function<bool()>& condition, Milliseconds timeout = kPatience);

}  // namespace vantelink_test
