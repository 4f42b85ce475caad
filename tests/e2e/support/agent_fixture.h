// The unmodified executable on a desk of the program's own, and the scripted server that it talks to.
#pragma once

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/desk/desk.h"
#include "support/peers/scripted_server.h"

namespace vantelink_test {

inline constexpr char kAgent[] = VANTELINK_SOURCE_DIR "/build/windows/VantelinkAgent.exe";

template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

// Not so for a process that has ended and waits to be collected. One of which the first thread alone has
// ended still runs: until the last is gone, Wine keeps what it held, and a new agent would find it there.
inline bool is_running(int pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  std::ifstream status(process + "/stat");
  std::string text;
  std::getline(status, text);
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

class AgentTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { open_desk(Desk::Kind::VirtualDesktop); }
  static void open_desk(Desk::Kind kind) {
    ::unsetenv("SSL_CERT_FILE");
    ::unsetenv("SSL_CERT_DIR");
    authority = new TestAuthority;
    desk = new Desk(kind);
    std::ofstream(desk->folder() + "/ca.pem") << authority->pem();
  }
  static void TearDownTestSuite() {
    delete desk;
    delete authority;
  }
  void SetUp() override { server_ = std::make_unique<ScriptedServer>(*authority); }
  void TearDown() override { end_agent(); }

  // Starts the agent with the server's address. `environment` holds NAME=VALUE texts.
  void launch(const std::vector<std::string>& switches = {}, std::vector<std::string> environment = {}) {
    std::vector<std::string> program = {agent_, "--host", "localhost", "--port",
                                        std::to_string(server_->port())};
    program.insert(program.end(), switches.begin(), switches.end());
    environment.insert(environment.end(),
                       {"SSL_CERT_FILE=" + desk->folder() + "/ca.pem", "VLK_DEBUG_INPUT=1"});
    pid_ = desk->spawn(program, environment);
  }
  // The same, and returns its link upgraded; its look for an update finds none.
  std::unique_ptr<ServerConnection> start(const std::vector<std::string>& switches = {},
                                          const std::vector<std::string>& environment = {}) {
    launch(switches, environment);
    return server_->accept_upgraded();
  }
  bool running() const { return is_running(pid_); }
  void end_agent() {
    if (running()) ::kill(pid_, SIGKILL);
    EXPECT_TRUE(eventually([&] { return !running(); }));
    pid_ = 0;
  }

  inline static TestAuthority* authority;
  inline static Desk* desk;
  std::string agent_ = kAgent;
  std::unique_ptr<ScriptedServer> server_;
  int pid_ = 0;
};

}  // namespace vantelink_test
