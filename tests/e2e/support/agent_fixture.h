// Runs the shipped executable on a desk, connected to a scripted server.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/desk/desk.h"
#include "support/peers/scripted_server.h"
#include "support/waiting.h"

namespace vantelink_test {

inline constexpr char kAgent[] = VANTELINK_SOURCE_DIR "/build/windows/VantelinkAgent.exe";

// Hides the certificate store of this host from the programs under test.
void forget_host_certificates();

// Whether the process still has a running thread. False for a zombie process. True when only the first thread
// has ended: Wine keeps the process's objects until the last thread ends, and a new agent would find them.
[[nodiscard]] bool is_running(int pid);

// The sum, in KiB, of these fields of the process's smaps_rollup in /proc, for instance "Private_Dirty:". 0
// when the process does not exist.
long memory_kilobytes(int pid, const std::vector<std::string>& fields);

// One desk and one certificate authority for all tests of a program, and a new server for each test.
class AgentTest : public testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  static void open_desk(Desk::Kind kind);
  void SetUp() override;
  void TearDown() override;

  // The command line that starts `program` and connects it to the server.
  std::vector<std::string> command_line(const std::string& program) const;
  // Starts the agent. `switches` follow the server's address; `environment` holds NAME=VALUE texts.
  void launch(const std::vector<std::string>& switches = {}, std::vector<std::string> environment = {});
  // Starts the agent and returns its connection after the upgrade. The agent's update check is answered with
  // 404.
  std::unique_ptr<ServerConnection> start(const std::vector<std::string>& switches = {},
                                          const std::vector<std::string>& environment = {});
  [[nodiscard]] bool running() const { return is_running(pid_); }
  [[nodiscard]] bool ends() const;  // whether the agent ends before the timeout
  void kill_agent();                // does nothing if the agent does not run

  // Whether the agent's debug log contains the text, now or before the timeout.
  [[nodiscard]] static bool logged(const std::string& text);
  [[nodiscard]] static bool becomes_logged(const std::string& text);

  inline static TestAuthority* authority;
  inline static Desk* desk;
  std::string agent_ = kAgent;
  std::unique_ptr<ScriptedServer> server_;
  int pid_ = 0;
};

}  // namespace vantelink_test
