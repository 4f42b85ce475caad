// The agent's settings and their store: one registry key of the current user.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

// Strings are UTF-8. An empty `server_host` means the default server host and a `server_port` of 0 means 443;
// the rule is applied where they are used, and the record itself stays empty and 0.
struct AgentConfig {
  std::string display_name;       // name under which the representative sees this machine
  bool unattended = false;        // sessions start without asking the local user
  std::string agent_id;           // identity issued at enrolment, empty before
  std::string agent_secret;       // credential issued at enrolment, kept in clear text
  std::string server_host;        // of the command line only: never stored
  std::uint32_t server_port = 0;  // of the command line only: never stored
  std::string skipped_version;    // the update that the user chose not to have
};

inline constexpr std::uint32_t kDefaultServerPort = 443;

// Host name that an empty `server_host` stands for, fixed when the agent is built.
const char* default_server_host();

struct ServerAddress {
  std::string host;
  std::uint32_t port;
};

// Where the record's server is, the defaults filled in.
ServerAddress server_address(const AgentConfig& config);

// The stored settings, with defaults for what is missing. Cannot fail.
AgentConfig load_config();

// Writes the five stored values, the record as a whole. A failure is silent.
void save_config(const AgentConfig& config);

}  // namespace vlk::agent
