// Finds the switches in the raw command line. There deliberately is no option parser: each switch is found by
// a case-sensitive search for its text, so it also counts inside another word or another switch's value.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vlk::agent {

enum class RunMode {
  Agent,             // the window, the tray icon and the connection to the relay
  Service,           // the service itself
  InstallService,    // installs the service and shows one message box
  UninstallService,  // removes the service and shows one message box
};

// Chooses the run mode. `command_line` does not contain the program's own path. Of several service switches,
// `--service` takes precedence, then `--install-service`.
[[nodiscard]] RunMode find_run_mode(std::wstring_view command_line);

// Whether the window starts hidden.
[[nodiscard]] bool wants_hidden_start(std::wstring_view command_line);

// The text after the first `--host` and any blanks and "=", up to the next blank or the end. Quotes and tabs
// are ordinary characters. Points into `command_line`; no value if there is no text.
[[nodiscard]] std::optional<std::wstring_view> find_host(std::wstring_view command_line);

// The decimal number after the first `--port` and any blanks and "="; no value unless it is above 0.
[[nodiscard]] std::optional<std::uint32_t> find_port(std::wstring_view command_line);

}  // namespace vlk::agent
