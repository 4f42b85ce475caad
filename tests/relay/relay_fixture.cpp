// The fixture's bodies.
#include "relay/relay_fixture.h"

#include <openssl/pem.h>

#include <chrono>
#include <fstream>

#include "fakes/fakes.h"
#include "relay/secrets.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

constexpr std::chrono::seconds kPatience{20};

template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::vector<unsigned char> der_of(const std::string& file) {
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "r"),
                                                                  &std::fclose);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      PEM_read_X509(stream.get(), nullptr, nullptr, nullptr), &X509_free);
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate.get(), &bytes);
  std::vector<unsigned char> result(bytes, bytes + size);
  OPENSSL_free(bytes);
  return result;
}

}  // namespace

RelayTest::RelayTest() = default;
RelayTest::~RelayTest() = default;

void RelayTest::SetUp() {
  start_sodium();
  vantelink_fakes::reset();
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  folder_ = mkdtemp(name);
  limits_.tick = std::chrono::milliseconds(10);
  std::string remark;
  certificate_ = self_made_certificate(folder_, {"localhost"}, remark);
  vantelink_fakes::script().roots = {der_of(certificate_.certificate)};
  log_ = std::make_unique<Log>([this](std::string_view line) {
    const std::lock_guard<std::mutex> guard(log_lock_);
    log_text_.append(line).append("\n");
  });
  store_ = std::make_unique<Store>(folder_ / "relay.db");
  store_->add_user("admin", hash_password(kPassword));
  start();
}

void RelayTest::TearDown() {
  stop();
  store_.reset();
  std::filesystem::remove_all(folder_);
}

void RelayTest::start() {
  Server::Settings settings;
  settings.console = VANTELINK_SOURCE_DIR "/tests/relay";
  settings.updates = folder_ / "updates";
  settings.certificate = certificate_;
  server_ = std::make_unique<Server>(settings, *store_, *log_, limits_);
  port_ = server_->port();
  thread_ = std::thread([this] { server_->run(); });
}

void RelayTest::stop() {
  if (!server_) return;
  server_->stop();
  thread_.join();
  server_.reset();
}

std::string RelayTest::log_in() {
  return Browser(port_)
      .request("POST", "/api/login", Json{{"name", "admin"}, {"password", kPassword}}.dump())
      .cookie;
}

std::unique_ptr<Browser> RelayTest::console() {
  auto browser = std::make_unique<Browser>(port_);
  unsigned status = 0;
  EXPECT_TRUE(browser->open_console(log_in(), status)) << status;
  return browser;
}

std::unique_ptr<agent::AgentClient> RelayTest::connect_agent(const std::string& name, bool unattended) {
  agent::AgentConfig config;
  config.display_name = name;
  config.unattended = unattended;
  config.server_host = "localhost";
  config.server_port = port_;
  auto client = std::make_unique<agent::AgentClient>(config, agent::AgentCallbacks{});
  client->start();
  wait_for_machine(name, "online");
  return client;
}

Json RelayTest::wait_for_machine(const std::string& name, const std::string& state) {
  const std::string cookie = log_in();
  Json found;
  EXPECT_TRUE(eventually([&] {
    const Json list = Browser(port_).request("GET", "/api/agents", {}, cookie).body;
    for (const Json& machine : list["agents"]) {
      if (machine["name"] == name && machine["state"] == state) found = machine;
    }
    return !found.is_null();
  })) << name
      << " never was " << state;
  return found;
}

bool RelayTest::logged(const std::string& text) {
  return eventually([&] {
    const std::lock_guard<std::mutex> guard(log_lock_);
    return log_text_.find(text) != std::string::npos;
  });
}

}  // namespace vlk::relay
