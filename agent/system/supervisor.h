// The service's loop. It keeps one agent running in the console session, as the user who is logged on there,
// and starts a new agent whenever the agent has ended.
#pragma once

namespace vlk::agent {

struct StopEvent;

// Runs the loop until the stop event is set, then ends the agent and returns. Runs on the service's own
// thread. Failures are not reported: an agent that cannot be started is tried again.
void supervise(StopEvent& stop_event);

}  // namespace vlk::agent
