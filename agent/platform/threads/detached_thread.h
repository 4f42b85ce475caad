// Threads that nothing waits for.
#pragma once

#include <functional>

namespace vlk {

// Runs `work` on a new thread whose file calls show no message boxes. The end of the process does not wait
// for the thread. Throws std::system_error if no thread can be created.
void start_detached_thread(std::function<void()> work);

}  // namespace vlk
