// Starts and ends the agent's process in the console session and waits for its end. The supervising loop uses
// the system only through these functions.
#pragma once

#include <cstdint>
#include <memory>

namespace vlk::agent {

// A started agent. Each platform defines it.
struct ChildProcess;

struct ChildProcessDeleter {
  void operator()(ChildProcess* process) const;
};
// Owns the handle of a process. The process continues to run after its handle is closed.
using UniqueProcess = std::unique_ptr<ChildProcess, ChildProcessDeleter>;

// The event that asks the service to stop. Each platform defines it.
struct StopEvent;

inline constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

// The session that has the machine's own screen and keyboard, or kNoSession.
[[nodiscard]] std::uint32_t active_console_session();

// Starts a copy of this executable in the console session, hidden, as the user who is logged on there. Null
// if no user is logged on there, and on any failure.
[[nodiscard]] UniqueProcess launch_in_console_session();

// Ends a process at once, without asking it to end by itself.
void terminate_process(ChildProcess& process);

enum class WaitResult {
  Stop,        // the stop event is set
  ChildEnded,  // the child has ended, and the stop event is not set
  Neither,     // the time limit has passed, or the wait failed
};

// Waits for the stop event, and for the end of `child` unless `child` is null.
[[nodiscard]] WaitResult wait_for_stop_or_child(StopEvent& stop_event, ChildProcess* child,
                                                std::uint32_t timeout_ms);

}  // namespace vlk::agent
