// The server that an agent connects to.
#include <gtest/gtest.h>

#include "config/config.h"

namespace vlk::agent {
namespace {

TEST(ServerAddress, EmptyHostAndPortZeroAreReplacedEachByItsDefault) {
  AgentConfig config;
  EXPECT_EQ(server_address(config).host, default_server_host());
  EXPECT_EQ(server_address(config).port, 443u);
  config.server_host = "relay.test";
  EXPECT_EQ(server_address(config).host, "relay.test");
  EXPECT_EQ(server_address(config).port, 443u);
  config.server_port = 8443;
  EXPECT_EQ(server_address(config).port, 8443u);
  config.server_host.clear();
  EXPECT_EQ(server_address(config).host, default_server_host());
  EXPECT_EQ(server_address(config).port, 8443u);
}

}  // namespace
}  // namespace vlk::agent
