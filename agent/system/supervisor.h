// The service's loop: one agent in the console session, whoever is logged on there, and a new one whenever
// it ends.
#pragma once

namespace vlk::agent {

// Returns when `stop_event`, which the caller owns, is set; the agent has been ended by then. Runs on the
// service's own thread. Reports nothing: an agent that cannot be started is tried again.
void supervise(void* stop_event);

}  // namespace vlk::agent
