// The Windows service, whose only task is to keep one agent alive in the console session, and its
// installation. No failure is reported or logged but by the results.
#pragma once

namespace vlk::agent {

// Runs the service in this process, which the service manager must have started; returns when the service
// has stopped. False at once when it was started otherwise.
bool run_service_dispatcher();

// Installs this executable as a service that starts with the system, and starts it now. An installed one
// keeps its path and settings and is started. True also if only the start failed. Needs an administrator.
bool install_service();

// Asks the service to stop, without waiting for it, and removes it. False if it was not installed.
bool uninstall_service();

// Whether the caller's effective token is a member of Administrators; one without elevation is not.
bool is_administrator();

}  // namespace vlk::agent
