// The service's loop, which keeps one agent running in the console session, as whoever is logged on there,
// and starts a new one whenever it ends.
#pragma once

namespace vlk::agent {

struct StopEvent;

// Returns when the stop event is set; the agent has been ended by then. Runs on the service's own thread.
// Reports nothing: an agent that cannot be started is tried again.
void supervise(StopEvent& stop_event);

}  // namespace vlk::agent
