// Sends the test browser's requests and messages, and reads the answers.
#include "relay/browser.h"

#include <atomic>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "relay/wire/part.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

namespace vlk::relay {
namespace {

const std::string kCookie = "__Host-vantelink_session=";

}  // namespace

struct Browser::Wire {
  using Tls = beast::ssl_stream<beast::tcp_stream>;

  Wire(unsigned short its_port, int its_receive_buffer)
      : port(its_port), receive_buffer(its_receive_buffer) {}

  std::string origin() const { return "https://localhost:" + std::to_string(port); }
  std::unique_ptr<Tls> connect() {
    auto stream = std::make_unique<Tls>(io, tls);
    beast::get_lowest_layer(*stream).expires_never();
    auto& tcp = beast::get_lowest_layer(*stream).socket();
    tcp.open(asio::ip::tcp::v4());
    if (receive_buffer > 0) tcp.set_option(asio::socket_base::receive_buffer_size(receive_buffer));
    tcp.connect({asio::ip::address_v4::loopback(), port});
    stream->handshake(asio::ssl::stream_base::client);
    return stream;
  }

  // Reads one WebSocket message. Returns nothing if it is a part that does not complete its message.
  std::optional<Message> read_piece(beast::error_code& error) {
    beast::flat_buffer buffer;
    socket->read(buffer, error);
    if (error) return std::nullopt;
    return joined(beast::buffers_to_string(buffer.data()));
  }
  // Adds the bytes of the WebSocket message that was read last. Returns nothing until a message is complete.
  std::optional<Message> joined(std::string bytes) {
    if (socket->got_text()) return Message{true, std::move(bytes)};
    if (bytes.size() < kPartHeaderSize || static_cast<std::uint8_t>(bytes[0]) != kPartMark)
      return Message{false, std::move(bytes)};
    const auto flags = static_cast<std::uint8_t>(bytes[1]);
    std::string& whole = unfinished[flags >> kPartLaneShift];
    if (flags & kFirstPart) whole.clear();
    whole += bytes.substr(kPartHeaderSize);
    if (!(flags & kLastPart)) return std::nullopt;
    return Message{(flags & kTextPart) != 0, std::exchange(whole, {})};
  }
  // Applies a message with the list of machines or its changes. Returns false for other messages.
  bool apply_list(const Json& message) {
    const bool whole = message["type"] == "agents";
    if (!whole && message["type"] != "agents-changed") return false;
    if (whole) machines.clear();
    missed = !whole && (missed || message["version"] != version + 1);
    if (missed) return true;
    version = message["version"];
    for (const Json& machine : message[whole ? "agents" : "changed"])
      machines[machine["id"]] = machine;
    for (const Json& id : message.value("removed", Json::array()))
      machines.erase(id);
    return true;
  }
  Message read() {
    for (;;) {
      beast::error_code error;
      auto message = read_piece(error);
      if (message && message->text) has_list = apply_list(Json::parse(message->bytes));
      if (message) return std::move(*message);
      if (error) throw beast::system_error(error);
    }
  }

  const unsigned short port;
  const int receive_buffer;
  std::map<int, std::string> unfinished;
  std::map<std::string, Json> machines;  // by id
  std::uint64_t version = 0;             // of the list
  bool missed = false;                   // a version is missing
  bool has_list = false;                 // the text that was read last is about the list
  asio::io_context io;
  asio::ssl::context tls{asio::ssl::context::tls_client};
  std::unique_ptr<websocket::stream<Tls>> socket;
  std::unique_ptr<Tls> held;
  std::atomic<int> pings{0};
};

Browser::Browser(unsigned short port, int receive_buffer)
    : wire_(std::make_unique<Wire>(port, receive_buffer)) {}

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
  if (!cookie.empty()) request.set(http::field::cookie, "other=1; " + kCookie + cookie);
  request.set(http::field::origin, origin.empty() ? wire_->origin() : origin);
  request.body() = body;
  request.prepare_payload();
  http::write(*stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  http::read(*stream, buffer, response);
  Answer answer{response.result_int(), Json::parse(response.body(), nullptr, false), {}, response.body()};
  const std::string set(response[http::field::set_cookie]);
  if (set.starts_with(kCookie)) answer.cookie = set.substr(kCookie.size(), set.find(';') - kCookie.size());
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
    if (!cookie.empty()) request.set(http::field::cookie, kCookie + cookie);
    request.set(http::field::origin, origin.empty() ? wire_->origin() : origin);
    request.set(http::field::sec_websocket_protocol, "vantelink.console.v5");
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

std::uint32_t Browser::open_session(const std::string& agent) {
  send({{"type", "open"}, {"agent", agent}});
  return accepted_session();
}

std::uint32_t Browser::accepted_session() {
  for (;;) {
    const Json session = read_text("session");
    if (session["state"] == "accepted") return session["session"];
    if (session["state"] == "ended") throw std::runtime_error("the session was not accepted");
  }
}

Json Browser::read_text(const std::string& type) {
  for (;;) {
    const Message read = wire_->read();
    if (!read.text) continue;
    Json message = Json::parse(read.bytes);
    if (message["type"] == type) return message;
  }
}

Json Browser::read_machines() {
  for (;;) {
    if (wire_->read().text && wire_->has_list) break;
  }
  if (wire_->missed) throw std::runtime_error("a version of the list is missing");
  Json list = Json::array();
  for (const auto& entry : wire_->machines)
    list.push_back(entry.second);
  return list;
}

Envelope Browser::read_envelope(Msg type) {
  for (;;) {
    const Message read = wire_->read();
    if (read.text) continue;
    Envelope envelope;
    if (!decode_envelope(reinterpret_cast<const unsigned char*>(read.bytes.data()), read.bytes.size(),
                         envelope)) {
      throw std::runtime_error("the relay sent a binary message that is not an envelope");
    }
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

void Browser::send_while_reading(const std::vector<std::string>& messages,
                                 const std::function<void(Msg, const std::string&)>& received) {
  constexpr std::string_view kPing = R"({"type":"ping","id":0})";
  // Both directions run in one thread, because OpenSSL allows only one thread at a time in a connection.
  const auto write = [&]() -> asio::awaitable<void> {
    wire_->socket->binary(true);
    for (const std::string& message : messages)
      co_await wire_->socket->async_write(asio::buffer(message), asio::use_awaitable);
    wire_->socket->text(true);
    co_await wire_->socket->async_write(asio::buffer(kPing), asio::use_awaitable);
  };
  const auto read = [&]() -> asio::awaitable<void> {
    for (;;) {
      beast::flat_buffer buffer;
      co_await wire_->socket->async_read(buffer, asio::use_awaitable);
      const auto message = wire_->joined(beast::buffers_to_string(buffer.data()));
      if (!message) continue;
      if (message->text && Json::parse(message->bytes)["type"] == "pong") co_return;
      if (!message->text) received(static_cast<Msg>(message->bytes.at(0)), message->bytes.substr(10));
    }
  };
  const auto rethrow = [](const std::exception_ptr& failure) {
    if (failure) std::rethrow_exception(failure);
  };
  asio::co_spawn(wire_->io, write, rethrow);
  asio::co_spawn(wire_->io, read, rethrow);
  wire_->io.restart();
  wire_->io.run();
}

Browser::Message Browser::read_message() {
  return wire_->read();
}

Browser::Arrived Browser::read_binary() {
  for (;;) {
    const Message read = wire_->read();
    if (!read.text) return {static_cast<Msg>(read.bytes.at(0)), read.bytes.size()};
  }
}

bool Browser::read_piece() {
  beast::error_code error;
  (void)wire_->read_piece(error);
  return !error;
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
