// Threads that nobody waits for.
#pragma once

#include <functional>

namespace vlk {

// Runs `work` on a thread of its own, which process exit does not wait for. Throws std::system_error when
// there can be no further thread.
void start_detached_thread(std::function<void()> work);

}  // namespace vlk
