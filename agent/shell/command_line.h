// Finds the switches in the raw command line. There is no option parser: each switch is a case-sensitive
// search for its letters, so it also counts inside another word or another switch's value. That is fixed
// behaviour.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vlk::agent {

enum class RunMode {
  Agent,             // the window, the tray icon and the server link
  Service,           // the service's host
  InstallService,    // one message box and out
  UninstallService,  // the same
};

// The line is without the program's own path; a null one is passed as an empty one. Of several service
// switches `--service` wins, then `--install-service`.
RunMode find_run_mode(std::wstring_view command_line);

// Whether the window starts hidden.
bool wants_hidden_start(std::wstring_view command_line);

// What follows the first `--host`, blanks and "=" skipped, up to the next blank or the end; quotes and tabs
// are ordinary characters. A part of `command_line`, or no value if nothing follows.
std::optional<std::wstring_view> find_host(std::wstring_view command_line);

// The decimal number behind the first `--port`, blanks and "=" skipped; no value unless it is above 0.
std::optional<std::uint32_t> find_port(std::wstring_view command_line);

}  // namespace vlk::agent
