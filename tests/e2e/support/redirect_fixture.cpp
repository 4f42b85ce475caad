// Preloads the redirecting library and searches /proc for processes.
#include "e2e/support/redirect_fixture.h"

#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "config/config.h"

namespace vantelink_test {
namespace {

// A process may end while its file is read. operator<< then only sets an error flag, while a stream iterator
// would throw.
std::string text_of_file(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace

void RedirectTest::SetUpTestSuite() {
  forget_host_certificates();
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

void RedirectTest::TearDownTestSuite() {
  delete desk;
  delete authority;
  std::filesystem::remove_all(folder);
}

void RedirectTest::SetUp() {
  serve();
}

void RedirectTest::TearDown() {
  // Both commands fail when the test installed no service.
  (void)desk->exec({"sc", "stop", "VantelinkAgent"});
  (void)desk->exec({"sc", "delete", "VantelinkAgent"});
  kill_agents();
}

void RedirectTest::serve() {
  ScriptedServer::Options options;
  options.names = {vlk::agent::default_server_host()};
  server_ = std::make_unique<ScriptedServer>(*authority, options);
  redirect_to(server_->port());
}

void RedirectTest::redirect_to(int port) {
  std::ofstream(folder + "/port") << port << '\n';
}

int RedirectTest::redirected_port() {
  return std::stoi(text_of_file(folder + "/port"));
}

void RedirectTest::set_variable(const std::string& name, const std::string& value) {
  desk->output({"reg", "add", "HKCU\\Environment", "/v", name, "/d", value, "/f"});
}

std::unique_ptr<ServerConnection> RedirectTest::greeted() const {
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

bool RedirectTest::agent_connects(Milliseconds timeout) const {
  while (server_->has_client(timeout)) {
    try {
      auto peer = server_->accept();
      if (peer->handshake() && !peer->read_request().starts_with("GET /version.json ")) return true;
    } catch (const std::runtime_error&) {
    }
  }
  return false;
}

std::vector<int> RedirectTest::processes(const std::string& text) {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int pid = std::atoi(entry.path().filename().c_str());
    if (pid == 0) continue;
    std::string line = text_of_file(entry.path() / "cmdline");
    for (char& c : line)
      if (c == '\0') c = ' ';
    if (line.find(text) == std::string::npos) continue;
    const std::string environment = text_of_file(entry.path() / "environ");
    if (environment.find("WINEPREFIX=" + desk->folder() + '/') != std::string::npos) found.push_back(pid);
  }
  return found;
}

bool RedirectTest::gone(const std::string& text) {
  return eventually([&] { return processes(text).empty(); });
}

void RedirectTest::kill_agents() {
  for (const int pid : processes("VantelinkAgent.exe"))
    ::kill(pid, SIGKILL);
  EXPECT_TRUE(gone("VantelinkAgent.exe"));
}

bool RedirectTest::service_exists() {
  return desk->exec({"sc", "query", "VantelinkAgent"}) == 0;
}

RedirectTest::DisplayNameTaken::DisplayNameTaken() {
  EXPECT_EQ(desk->exec(
                {"sc", "create", "Other", "binPath=", "C:\\x.exe", "DisplayName=", "Maravek Remote Support"}),
            0);
}

RedirectTest::DisplayNameTaken::~DisplayNameTaken() {
  EXPECT_EQ(desk->exec({"sc", "delete", "Other"}), 0);
}

}  // namespace vantelink_test
