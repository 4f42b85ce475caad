// Starts the agent in the console session and looks after that process: what the supervising loop needs of
// the system.
#pragma once

#include <cstdint>
#include <memory>

namespace vlk::agent {

struct ProcessCloser {
  void operator()(void* process) const;
};
// Owns the handle, not the process: that goes on without it.
using UniqueProcess = std::unique_ptr<void, ProcessCloser>;

inline constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

// The session that has the machine's own screen and keyboard; kNoSession while there is none.
std::uint32_t active_console_session();

// Starts a copy of this executable there, hidden, as the user who is logged on; null when nobody is, or on
// any failure.
UniqueProcess launch_in_console_session();

// Ends a process without notice.
void terminate_process(void* process);

enum class Wake {
  Stop,        // the stop was asked for
  ChildEnded,  // and no stop
  Neither,     // the time is over, or the wait failed
};

// Waits for the stop event, and for the end of `child` unless that is null.
Wake wait_for_stop_or_child(void* stop_event, void* child, std::uint32_t timeout_ms);

}  // namespace vlk::agent
