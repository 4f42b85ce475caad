// A desk on which connections to the agent's built-in server reach the scripted server, so that an agent
// needs no switches. Tests use it for agents that a service or an installer starts.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "e2e/support/shell_fixture.h"

namespace vantelink_test {

// The switch with which the service starts an agent.
inline constexpr char kChild[] = "--from-service";

class RedirectTest : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;
  // Removes the service and ends all agents.
  void TearDown() override;

  // Replaces the server. Agents that connect from now on reach the new server.
  void serve();
  // Redirects agents that connect from now on to this port.
  static void redirect_to(int port);
  static int redirected_port();

  // Sets an environment variable of the user; programs that a service starts get it too.
  static void set_variable(const std::string& name, const std::string& value);

  // Waits for the next agent's connection and reads its Hello. Skips broken connections of agents that have
  // ended.
  std::unique_ptr<ServerConnection> greeted() const;

  // Whether an agent connects before the timeout. Update checks and broken connections do not count.
  [[nodiscard]] bool agent_connects(Milliseconds timeout) const;

  // The ids on this host of the desk's processes whose command line contains the text.
  static std::vector<int> processes(const std::string& text);
  // Whether all processes of the desk whose command line contains the text end in time.
  [[nodiscard]] static bool gone(const std::string& text);
  static void kill_agents();
  // Whether `sc query` finds the agent's service.
  [[nodiscard]] static bool service_exists();

  // Another service that has the display name of the agent's service. Windows allows a display name only
  // once.
  struct DisplayNameTaken {
    DisplayNameTaken();
    ~DisplayNameTaken();
  };

  inline static TestAuthority* authority;
  inline static Desk* desk;
  inline static std::string folder;  // contains files with the port and the authority's certificate
  std::unique_ptr<ScriptedServer> server_;
};

}  // namespace vantelink_test
