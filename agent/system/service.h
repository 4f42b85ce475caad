// The Windows service, whose only task is to keep one agent running in the console session, and its
// installation. Failures are reported only by the return values.
#pragma once

namespace vlk::agent {

// Runs the service in this process, which the service manager must have started. Returns true when the
// service has stopped, or false at once if the process was started in another way.
bool run_service_dispatcher();

// Installs this executable as a service that starts with the system, and starts it now. A service that is
// installed already keeps its path and settings and is started. True even if the service is installed but
// could not be started. Needs an administrator's rights.
[[nodiscard]] bool install_service();

// Asks the service to stop, without waiting until it has stopped, and removes it. False if it was not
// installed.
[[nodiscard]] bool uninstall_service();

// Whether the caller's effective token is a member of Administrators. A token without elevation does not
// count as a member.
[[nodiscard]] bool is_administrator();

}  // namespace vlk::agent
