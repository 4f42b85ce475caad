// The supervising loop.
#include "system/supervisor.h"

#include <utility>

#include "system/session_launcher.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kPollInterval = 5000;  // milliseconds

void end_child(UniqueProcess child) {
  if (child) terminate_process(*child);
}

}  // namespace

// A change of the console session is found only by polling. A child that has ended is deliberately replaced
// at once and without a limit, even if it ended because another agent runs in its session.
void supervise(StopEvent& stop_event) {
  UniqueProcess child;
  std::uint32_t session = kNoSession;
  for (;;) {
    const std::uint32_t current = active_console_session();
    if (!child || current != session) {
      end_child(std::move(child));
      child = launch_in_console_session();
      session = current;  // even if the launch failed
    }
    switch (wait_for_stop_or_child(stop_event, child.get(), kPollInterval)) {
      case WaitResult::Stop:
        end_child(std::move(child));
        return;
      case WaitResult::ChildEnded:
        child.reset();
        break;
      case WaitResult::Neither:
        break;
    }
  }
}

}  // namespace vlk::agent
