// The agent's settings, stored in one registry key of the current user.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

// Strings are UTF-8. An empty `server_host` stands for the default server, and a `server_port` of 0 for 443.
// server_address() replaces them by these defaults; the record itself keeps the empty text and the 0.
struct AgentConfig {
  std::string display_name;       // name under which the representative sees this machine
  bool unattended = false;        // sessions start without a prompt to the local user
  std::string agent_id;           // identity issued at enrolment; empty before enrolment
  std::string agent_secret;       // credential issued at enrolment; stored as plain text
  std::string server_host;        // from the command line only; never stored
  std::uint32_t server_port = 0;  // from the command line only; never stored
  std::string skipped_version;    // the update that the user chose to skip
};

inline constexpr std::uint32_t kDefaultServerPort = 443;

// The host name that an empty `server_host` stands for; compiled in.
[[nodiscard]] const char* default_server_host();

struct ServerAddress {
  std::string host;
  std::uint32_t port;
};

// The server of these settings, with the defaults applied.
[[nodiscard]] ServerAddress server_address(const AgentConfig& config);

// The stored settings, with defaults for missing values. Cannot fail.
AgentConfig load_config();

// Writes all five stored values. A failure is ignored.
void save_config(const AgentConfig& config);

}  // namespace vlk::agent
