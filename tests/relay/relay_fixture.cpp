// Starts and stops the fixture's relay, and measures the heap.
#include "relay/relay_fixture.h"

#include <malloc.h>

#include <fstream>
#include <future>

#include <boost/asio/post.hpp>
#include <openssl/x509.h>

#include "fakes/fakes.h"
#include "relay/base/secrets.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/server.h"
#include "relay/storage/test_database.h"

#ifdef __SANITIZE_ADDRESS__
// Declared here because not every compiler installs the sanitizer's header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace vlk::relay {
namespace {

constexpr std::int64_t kEnrolmentMinutes = 60;

std::vector<unsigned char> der_of(const X509* certificate) {
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate, &bytes);
  std::vector<unsigned char> result(bytes, bytes + size);
  OPENSSL_free(bytes);
  return result;
}

}  // namespace

std::size_t heap_bytes() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes();
#else
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

bool is_open(const std::filesystem::path& path) {
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", gone)) {
    if (std::filesystem::read_symlink(entry.path(), gone) == path) return true;
  }
  return false;
}

RelayTest::RelayTest() = default;
RelayTest::~RelayTest() = default;

void RelayTest::SetUp() {
  start_sodium();
  vantelink_fakes::reset();
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  folder_ = mkdtemp(name);
  std::filesystem::create_directory(folder_ / "console");
  std::ofstream(folder_ / "console/index.html") << "the console";
  limits_.tick = limits_.update_look = limits_.certificate_look = std::chrono::milliseconds(10);
  make_certificate();
  log_ = std::make_unique<Log>([this](std::string_view line) {
    const std::lock_guard<std::mutex> guard(log_lock_);
    log_text_.append(line).append("\n");
  });
  Store store(database_in(folder_));
  store.add_user("admin", hash_password(kPassword));
  store.open_enrolment(kEnrolmentMinutes);
  start();
}

void RelayTest::make_certificate() {
  const CertificateAndKey authority = make_authority({"localhost"}, wall_seconds());
  certificate_ = {folder_ / "cert.pem", folder_ / "key.pem"};
  write_pair(certificate_,
             make_leaf(authority.certificate, authority.key, names_for({"localhost"}), wall_seconds()));
  vantelink_fakes::script().roots = {der_of(authority.certificate.get())};
}

void RelayTest::TearDown() {
  stop();
  std::filesystem::remove_all(folder_);
  EXPECT_EQ(failure_, "") << "the relay has ended";
}

void RelayTest::start() {
  Server::Settings settings;
  settings.data = folder_;
  settings.console = folder_ / "console";
  settings.updates = folder_ / "updates";
  settings.update_key = update_key_;
  settings.address = address_;
  settings.proxies = trusted_proxies_;
  settings.proxy_protocol = proxy_protocol_;
  settings.proxy_header = proxy_header_;
  settings.certificate = certificate_;
  settings.own = own_;
  settings.operators = operators_;
  settings.cluster = cluster_;
  server_ = std::make_unique<Server>(settings, std::make_unique<Store>(database_in(folder_)), *log_, limits_);
  port_ = server_->port();
  thread_ = std::thread([this] {
    try {
      server_->run();
    } catch (const std::exception& failure) {
      failure_ = failure.what();
    }
  });
}

void RelayTest::stop() {
  if (!server_) return;
  server_->stop();
  thread_.join();
  server_.reset();
}

void RelayTest::on_relay(const std::function<void()>& work) {
  std::promise<void> done;
  boost::asio::post(server_->context(), [&] {
    work();
    done.set_value();
  });
  done.get_future().wait();
}

std::shared_ptr<void> RelayTest::hold_database(std::size_t jobs) {
  const auto release = std::make_shared<std::promise<void>>();
  const auto released = release->get_future().share();
  std::promise<void> held;
  on_relay([&] {
    DatabaseThread& database = server_->database();
    const auto ignore = [](const std::string&) {};
    database.post(
        [released, &held](Store&) {
          held.set_value();
          released.wait();
        },
        ignore);
    for (std::size_t i = 1; i < jobs; ++i)
      database.post([](Store&) {}, ignore);
  });
  held.get_future().wait();
  return {nullptr, [release](void*) { release->set_value(); }};
}

std::string RelayTest::log_in() {
  return Browser(port_)
      .request("POST", "/api/login", Json{{"name", "admin"}, {"password", kPassword}}.dump())
      .cookie;
}

std::unique_ptr<Browser> RelayTest::console(int receive_buffer, std::string cookie) {
  auto browser = std::make_unique<Browser>(port_, receive_buffer);
  if (cookie.empty()) cookie = log_in();
  unsigned status = 0;
  EXPECT_TRUE(browser->open_console(cookie, status)) << status;
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
      << " was never " << state;
  return found;
}

bool RelayTest::logged(const std::string& text) {
  return eventually([&] {
    const std::lock_guard<std::mutex> guard(log_lock_);
    return log_text_.find(text) != std::string::npos;
  });
}

std::multiset<std::string> RelayTest::stored(const char* query) {
  if (server_) {
    on_relay([] {});
    server_->database().drain();
  }
  Database database(database_in(folder_));
  Statement statement(database, query);
  std::multiset<std::string> rows;
  while (statement.step())
    rows.insert(statement.text(0));
  return rows;
}

std::size_t RelayTest::settled_heap() {
  constexpr int kRounds = 100;
  std::size_t height = 0;
  for (int quiet = 0; quiet < kRounds; ++quiet) {
    const std::size_t now = heap_bytes();
    if (now > height + (64 << 10)) quiet = 0;
    height = std::max(height, now);
    // Waits until the relay's thread has done a round of its work, even on a busy machine.
    on_relay([] {});
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return height;
}

}  // namespace vlk::relay
