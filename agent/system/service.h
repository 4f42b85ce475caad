// The Windows service, whose only task is to keep one agent running in the console session, and its
// installation. Failures show only in the results.
#pragma once

namespace vlk::agent {

// Runs the service in this process, which the service manager must have started. Returns when the service has
// stopped; false at once if the process was started in another way.
bool run_service_dispatcher();

// Installs this executable as a service that starts with the system, and starts it now. A service that is
// installed already keeps its path and settings and is started. True also if only the start failed. Needs an
// administrator.
[[nodiscard]] bool install_service();

// Asks the service to stop, without waiting for that, and removes it. False if it was not installed.
[[nodiscard]] bool uninstall_service();

// Whether the caller's effective token is a member of Administrators. A token without elevation is not.
[[nodiscard]] bool is_administrator();

}  // namespace vlk::agent
