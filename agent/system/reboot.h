// Restarts the machine for a representative.
#pragma once

namespace vlk::agent {

// Writes the debug log's line and asks the system for a restart, whatever comes of that. If the environment
// variable "VLK_SIMULATE_REBOOT" is set, the restart is left out and the result is true: the caller is to
// drop its connection instead.
bool reboot_machine();

}  // namespace vlk::agent
