// Sends the test browser's requests and messages, and reads the answers.
#include "relay/browser.h"

#include <atomic>
#include <stdexcept>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

namespace vlk::relay {

struct Browser::Wire {
  using Tls = beast::ssl_stream<beast::tcp_stream>;

  explicit Wire(unsigned short its_port) : port(its_port) {}

  std::unique_ptr<Tls> connect() {
    auto stream = std::make_unique<Tls>(io, tls);
    beast::get_lowest_layer(*stream).expires_never();
    beast::get_lowest_layer(*stream).connect({asio::ip::address_v4::loopback(), port});
    stream->handshake(asio::ssl::stream_base::client);
    return stream;
  }

  const unsigned short port;
  asio::io_context io;
  asio::ssl::context tls{asio::ssl::context::tls_client};
  std::unique_ptr<websocket::stream<Tls>> socket;
  std::unique_ptr<Tls> held;
  std::atomic<int> pings{0};
};

Browser::Browser(unsigned short port) : wire_(std::make_unique<Wire>(port)) {}

Browser::~Browser() = default;

Browser::Answer Browser::request(const std::string& method, const std::string& target,
                                 const std::string& body, const std::string& cookie,
                                 const std::string& origin) {
  const auto stream = wire_->connect();
  http::request<http::string_body> request;
  request.method_string(method);
  request.target(target);
  request.version(11);
  request.set(http::field::host, "localhost:" + std::to_string(wire_->port));
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
  const auto stream = wire_->connect();
  beast::error_code error;
  asio::write(*stream, asio::buffer(bytes), error);
  std::string answer;
  asio::read(*stream, asio::dynamic_buffer(answer), error);
  return answer;
}

void Browser::send_and_hold(const std::string& bytes) {
  wire_->held = wire_->connect();
  asio::write(*wire_->held, asio::buffer(bytes));
}

bool Browser::open_console(const std::string& cookie, unsigned& status, const std::string& origin) {
  wire_->socket = std::make_unique<websocket::stream<Wire::Tls>>(std::move(*wire_->connect()));
  wire_->socket->set_option(websocket::stream_base::decorator([&](websocket::request_type& request) {
    if (!cookie.empty()) request.set(http::field::cookie, "vantelink_session=" + cookie);
    if (!origin.empty()) request.set(http::field::origin, origin);
    request.set(http::field::sec_websocket_protocol, "vantelink.console.v1");
  }));
  websocket::response_type response;
  beast::error_code error;
  wire_->socket->handshake(response, "localhost:" + std::to_string(wire_->port), "/console", error);
  status = response.result_int();
  wire_->socket->read_message_max(0);
  wire_->socket->control_callback([this](websocket::frame_type type, beast::string_view) {
    if (type == websocket::frame_type::ping) ++wire_->pings;
  });
  return !error;
}

void Browser::send(const Json& message) {
  wire_->socket->text(true);
  wire_->socket->write(asio::buffer(message.dump()));
}

void Browser::send_envelope(Msg type, std::uint32_t session, const std::string& payload) {
  const auto bytes = encode_envelope(type, session, reinterpret_cast<const unsigned char*>(payload.data()),
                                     payload.size(), 1);
  send_bytes({bytes.begin(), bytes.end()});
}

void Browser::send_bytes(const std::string& bytes) {
  wire_->socket->binary(true);
  wire_->socket->write(asio::buffer(bytes));
}

Json Browser::read_text(const std::string& type) {
  for (;;) {
    beast::flat_buffer buffer;
    wire_->socket->read(buffer);
    if (!wire_->socket->got_text()) continue;
    Json message = Json::parse(beast::buffers_to_string(buffer.data()));
    if (message["type"] == type) return message;
  }
}

Envelope Browser::read_envelope(Msg type) {
  for (;;) {
    beast::flat_buffer buffer;
    wire_->socket->read(buffer);
    if (wire_->socket->got_text()) continue;
    Envelope envelope;
    if (!decode_envelope(static_cast<const unsigned char*>(buffer.data().data()), buffer.size(), envelope)) {
      throw std::runtime_error("the relay sent a binary message that is not an envelope");
    }
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

int Browser::pings() const {
  return wire_->pings;
}

unsigned Browser::wait_closed() {
  beast::error_code error;
  while (!error) {
    beast::flat_buffer buffer;
    wire_->socket->read(buffer, error);
  }
  return wire_->socket->reason().code;
}

}  // namespace vlk::relay
