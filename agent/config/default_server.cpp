// The default server. Its host name is compiled in: each product that ships the agent sets the name when it
// builds the agent.
#include "config/config.h"

namespace vlk::agent {

const char* default_server_host() {
  return VANTELINK_DEFAULT_SERVER_HOST;
}

ServerAddress server_address(const AgentConfig& config) {
  return {config.server_host.empty() ? default_server_host() : config.server_host,
          config.server_port == 0 ? kDefaultServerPort : config.server_port};
}

}  // namespace vlk::agent
