// Starts the desk, the server and the agent, and reads /proc.
#include "e2e/support/agent_fixture.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace vantelink_test {

void forget_host_certificates() {
  ::unsetenv("SSL_CERT_FILE");
  ::unsetenv("SSL_CERT_DIR");
}

bool is_running(int pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  std::ifstream status(process + "/stat");
  std::string text;
  std::getline(status, text);
  // The state follows the name, which is in parentheses and may contain parentheses itself.
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string::npos) return false;
  if (text.find_first_of("ZX", name_end) != name_end + 2) return true;
  std::size_t threads = 0;
  std::error_code gone;
  for (std::filesystem::directory_iterator task(process + "/task", gone); task != end(task);
       task.increment(gone))
    ++threads;
  return threads > 1;
}

long memory_kilobytes(int pid, const std::vector<std::string>& fields) {
  std::ifstream map("/proc/" + std::to_string(pid) + "/smaps_rollup");
  long kilobytes = 0;
  for (std::string word; map >> word;) {
    long value = 0;
    if (std::find(fields.begin(), fields.end(), word) != fields.end()) map >> value;
    kilobytes += value;
  }
  return kilobytes;
}

void AgentTest::SetUpTestSuite() {
  open_desk(Desk::Kind::VirtualDesktop);
}

void AgentTest::open_desk(Desk::Kind kind) {
  forget_host_certificates();
  authority = new TestAuthority;
  desk = new Desk(kind);
  std::ofstream(desk->folder() + "/ca.pem") << authority->pem();
}

void AgentTest::TearDownTestSuite() {
  delete desk;
  delete authority;
}

void AgentTest::SetUp() {
  server_ = std::make_unique<ScriptedServer>(*authority);
}

void AgentTest::TearDown() {
  kill_agent();
}

std::vector<std::string> AgentTest::command_line(const std::string& program) const {
  return {program, "--host", "localhost", "--port", std::to_string(server_->port())};
}

void AgentTest::launch(const std::vector<std::string>& switches, std::vector<std::string> environment) {
  std::vector<std::string> program = command_line(agent_);
  program.insert(program.end(), switches.begin(), switches.end());
  environment.insert(environment.end(), {"SSL_CERT_FILE=" + desk->folder() + "/ca.pem", "VLK_DEBUG_INPUT=1"});
  pid_ = desk->spawn(program, environment);
}

std::unique_ptr<ServerConnection> AgentTest::start(const std::vector<std::string>& switches,
                                                   const std::vector<std::string>& environment) {
  launch(switches, environment);
  return server_->accept_upgraded();
}

bool AgentTest::ends() const {
  return eventually([&] { return !running(); });
}

void AgentTest::kill_agent() {
  if (running()) ::kill(pid_, SIGKILL);
  EXPECT_TRUE(ends());
  pid_ = 0;
}

bool AgentTest::logged(const std::string& text) {
  return desk->debug_log().find(text) != std::string::npos;
}

bool AgentTest::becomes_logged(const std::string& text) {
  return eventually([&] { return logged(text); });
}

}  // namespace vantelink_test
