// Restarts the machine for a representative.
#pragma once

namespace vlk::agent {

// Writes a line of the debug log and asks the system for a restart; a failure is ignored. If the environment
// variable "VLK_SIMULATE_REBOOT" is set, there is no restart and the result is true: the caller must close
// its connection instead.
[[nodiscard]] bool reboot_machine();

}  // namespace vlk::agent
