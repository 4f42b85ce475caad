// A desk on which the agent finds its built-in server in the test, so that it needs no switches: for agents
// that a service or an installer starts.
#pragma once

#include <filesystem>
#include <sstream>

#include "config/config.h"
#include "e2e/support/shell_fixture.h"

#include <signal.h>

namespace vantelink_test {

class RedirectTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::unsetenv("SSL_CERT_FILE");
    ::unsetenv("SSL_CERT_DIR");
    folder = run("mktemp -d");
    ::setenv("LD_PRELOAD", VANTELINK_SOURCE_DIR "/build/host/tests/redirect.so", 1);
    ::setenv("VANTELINK_REDIRECT_HOST", vlk::agent::default_server_host(), 1);
    ::setenv("VANTELINK_REDIRECT_PORT_FILE", (folder + "/port").c_str(), 1);
    authority = new TestAuthority;
    std::ofstream(folder + "/ca.pem") << authority->pem();
    desk = new Desk;
    set_variable("SSL_CERT_FILE", folder + "/ca.pem");
    set_variable("VLK_DEBUG_INPUT", "1");
  }
  static void TearDownTestSuite() {
    delete desk;
    delete authority;
    std::filesystem::remove_all(folder);
  }

  void SetUp() override { serve(); }
  // Leaves neither a service nor an agent behind.
  void TearDown() override {
    desk->exec({"sc", "stop", "VantelinkAgent"});
    desk->exec({"sc", "delete", "VantelinkAgent"});
    kill_agents();
  }

  // A new server, which agents find from now on.
  void serve() {
    ScriptedServer::Options options;
    options.names = {vlk::agent::default_server_host()};
    server_ = std::make_unique<ScriptedServer>(*authority, options);
    lead_to(server_->port());
  }
  static void lead_to(int port) { std::ofstream(folder + "/port") << port << '\n'; }

  // Sets a variable of the user's; programs that a service starts have it.
  static void set_variable(const std::string& name, const std::string& value) {
    if (desk->exec({"reg", "add", "HKCU\\Environment", "/v", name, "/d", value, "/f"}) != 0) {
      throw std::runtime_error("cannot set " + name);
    }
  }

  // The next agent's connection, with its hello read. Agents that were ended leave broken connections behind,
  // which are passed over.
  std::unique_ptr<ServerConnection> greeted() const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
      try {
        auto peer = server_->accept_upgraded();
        peer->read_until(vlk::Msg::Hello);
        return peer;
      } catch (const std::runtime_error&) {
        if (std::chrono::steady_clock::now() > deadline) throw;
      }
    }
  }

  // Whether an agent connects within the time. Their questions for updates do not count, nor do broken
  // connections.
  bool agent_connects(Milliseconds patience) const {
    while (server_->has_client(patience)) {
      try {
        auto peer = server_->accept();
        if (peer->handshake() && !peer->read_request().starts_with("GET /version.json ")) return true;
      } catch (const std::runtime_error&) {
      }
    }
    return false;
  }

  // The processes of the desk whose command line holds the text, by their ids on this host.
  static std::vector<int> processes(const std::string& text) {
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const int pid = std::atoi(entry.path().filename().c_str());
      if (pid == 0) continue;
      // A stream notes the error of a process that has gone meanwhile, its buffer alone would throw it.
      const auto read = [&](const char* name) {
        std::ostringstream whole;
        whole << std::ifstream(entry.path() / name).rdbuf();
        return whole.str();
      };
      std::string line = read("cmdline");
      for (char& c : line)
        if (c == '\0') c = ' ';
      if (line.find(text) == std::string::npos) continue;
      if (read("environ").find("WINEPREFIX=" + desk->folder() + '/') != std::string::npos) {
        found.push_back(pid);
      }
    }
    return found;
  }
  static bool gone(const std::string& text) {
    return eventually([&] { return processes(text).empty(); });
  }
  static void kill_agents() {
    for (const int pid : processes("VantelinkAgent.exe"))
      ::kill(pid, SIGKILL);
    EXPECT_TRUE(gone("VantelinkAgent.exe"));
  }

  // As long as it lives, another service has the display name that the agent's wants; Windows allows it once.
  struct DisplayNameTaken {
    DisplayNameTaken() {
      EXPECT_EQ(desk->exec({"sc", "create", "Other", "binPath=", "C:\\x.exe",
                            "DisplayName=", "Maravek Remote Support"}),
                0);
    }
    ~DisplayNameTaken() { EXPECT_EQ(desk->exec({"sc", "delete", "Other"}), 0); }
  };

  inline static TestAuthority* authority;
  inline static Desk* desk;
  inline static std::string folder;
  std::unique_ptr<ScriptedServer> server_;
};

}  // namespace vantelink_test
