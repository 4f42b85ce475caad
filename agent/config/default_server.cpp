// The compiled-in server: chosen when the agent is built, for each product that ships it.
#include "config/config.h"

namespace vlk::agent {

const char* default_server_host() {
  return VANTELINK_DEFAULT_SERVER_HOST;
}

}  // namespace vlk::agent
