// The fixture's bodies.
#include "relay/relay_fixture.h"

#include <openssl/pem.h>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <chrono>
#include <fstream>

#include "fakes/fakes.h"
#include "relay/secrets.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

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

Browser::Browser(unsigned short port) : port_(port) {}

std::unique_ptr<Browser::Tls> Browser::connect() {
  auto stream = std::make_unique<Tls>(io_, tls_);
  beast::get_lowest_layer(*stream).expires_never();
  beast::get_lowest_layer(*stream).connect({asio::ip::address_v4::loopback(), port_});
  stream->handshake(asio::ssl::stream_base::client);
  return stream;
}

Browser::Answer Browser::request(const std::string& method, const std::string& target,
                                 const std::string& body, const std::string& cookie,
                                 const std::string& origin) {
  const auto stream = connect();
  http::request<http::string_body> request;
  request.method_string(method);
  request.target(target);
  request.version(11);
  request.set(http::field::host, "localhost:" + std::to_string(port_));
  if (!cookie.empty()) request.set(http::field::cookie, "other=1; vantelink_session=" + cookie);
  if (!origin.empty()) request.set(http::field::origin, origin);
  request.body() = body;
  request.prepare_payload();
  http::write(*stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  http::read(*stream, buffer, response);
  Answer answer{response.result_int(), Json::parse(response.body(), nullptr, false), {}, response.body()};
  const std::string set(response[http::field::set_cookie]);
  const std::string prefix = "vantelink_session=";
  if (set.starts_with(prefix)) answer.cookie = set.substr(prefix.size(), set.find(';') - prefix.size());
  return answer;
}

std::string Browser::raw(const std::string& bytes) {
  const auto stream = connect();
  beast::error_code error;
  asio::write(*stream, asio::buffer(bytes), error);
  std::string answer;
  asio::read(*stream, asio::dynamic_buffer(answer), error);
  return answer;
}

bool Browser::open_console(const std::string& cookie, unsigned& status, const std::string& origin) {
  socket_ = std::make_unique<websocket::stream<Tls>>(std::move(*connect()));
  socket_->set_option(websocket::stream_base::decorator([&](websocket::request_type& request) {
    if (!cookie.empty()) request.set(http::field::cookie, "vantelink_session=" + cookie);
    if (!origin.empty()) request.set(http::field::origin, origin);
    request.set(http::field::sec_websocket_protocol, "vantelink.console.v1");
  }));
  websocket::response_type response;
  beast::error_code error;
  socket_->handshake(response, "localhost:" + std::to_string(port_), "/console", error);
  status = response.result_int();
  socket_->read_message_max(0);
  return !error;
}

void Browser::send(const Json& message) {
  socket_->text(true);
  socket_->write(asio::buffer(message.dump()));
}

void Browser::send_envelope(Msg type, std::uint32_t session, const std::string& payload) {
  const auto bytes = encode_envelope(type, session, reinterpret_cast<const unsigned char*>(payload.data()),
                                     payload.size(), 1);
  send_bytes({bytes.begin(), bytes.end()});
}

void Browser::send_bytes(const std::string& bytes) {
  socket_->binary(true);
  socket_->write(asio::buffer(bytes));
}

Json Browser::read_text(const std::string& type) {
  for (;;) {
    beast::flat_buffer buffer;
    socket_->read(buffer);
    if (!socket_->got_text()) continue;
    Json message = Json::parse(beast::buffers_to_string(buffer.data()));
    if (message["type"] == type) return message;
  }
}

Envelope Browser::read_envelope(Msg type) {
  for (;;) {
    beast::flat_buffer buffer;
    socket_->read(buffer);
    if (socket_->got_text()) continue;
    Envelope envelope;
    if (!decode_envelope(static_cast<const unsigned char*>(buffer.data().data()), buffer.size(), envelope)) {
      throw std::runtime_error("the relay sent a binary message that is no envelope");
    }
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

unsigned Browser::wait_closed() {
  beast::error_code error;
  while (!error) {
    beast::flat_buffer buffer;
    socket_->read(buffer, error);
  }
  return socket_->reason().code;
}

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
