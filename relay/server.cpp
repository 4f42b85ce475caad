// Accepts connections and passes each request to the code for its path.
#include "relay/server.h"

#include <stdexcept>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/write.hpp>

#include "relay/http/files.h"
#include "relay/links/console_link.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
// How messages are written. Agents read WebSocket fragments. A browser's scripts see only whole WebSocket
// messages, so long messages are divided into parts. A part with its headers fits into one TLS record, and
// takes 8 seconds at 2 kB/s, so the console sees progress within its time limit.
constexpr Channel::Division kToAgent{false, 64 * 1024};
constexpr Channel::Division kToBrowser{true, 16'000};
// How long a stopping relay waits until its close frames have reached the browsers.
constexpr std::chrono::milliseconds kStopDelay{300};
// The pause after a failed accept, for instance when no file descriptor is free.
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr char kAgentProtocol[] = "vantelink.v1";
constexpr char kConsoleProtocol[] = "vantelink.console.v2";

asio::ssl::context make_tls(const CertificateFiles& files) {
  asio::ssl::context tls(asio::ssl::context::tls_server);
  SSL_CTX_set_min_proto_version(tls.native_handle(), TLS1_2_VERSION);
  beast::error_code error;
  tls.use_certificate_chain_file(files.certificate, error);
  if (error)
    throw std::runtime_error("cannot use the certificate " + files.certificate + ": " + error.message());
  tls.use_private_key_file(files.key, asio::ssl::context::pem, error);
  if (error) throw std::runtime_error("cannot use the private key " + files.key + ": " + error.message());
  return tls;
}

tcp::acceptor listen(asio::io_context& io, const std::string& address, unsigned short port) {
  beast::error_code error;
  const auto parsed = asio::ip::make_address(address, error);
  if (error) throw std::runtime_error("\"" + address + "\" is not an IP address");
  try {
    return tcp::acceptor(io, tcp::endpoint(parsed, port));
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                             failure.code().message() + "; choose another with --port");
  }
}

}  // namespace

Server::Server(const Settings& settings, Store& store, const Log& log, const Limits& limits)
    : console_(settings.console),
      updates_(settings.updates),
      log_(log),
      limits_(limits),
      tls_(make_tls(settings.certificate)),
      acceptor_(listen(io_, settings.address, settings.port)),
      parts_(store, log, limits),
      api_(parts_, store, log, limits),
      enrolments_(limits.enrolments_per_address, limits.failure_window, limits.counted_keys),
      refusals_(limits.refusals_per_address, limits.failure_window, limits.counted_keys),
      agents_{parts_, store, log, limits, enrolments_, refusals_} {
  asio::co_spawn(io_, accept(), asio::detached);
  asio::co_spawn(io_, tick(), asio::detached);
}

unsigned short Server::port() const {
  return acceptor_.local_endpoint().port();
}

void Server::run() {
  io_.run();
}

void Server::stop() {
  asio::post(io_, [this] {
    if (stopping_) return;
    stopping_ = true;
    acceptor_.close();
    parts_.machines.cut_connections("the relay stops");
    parts_.browsers.close_all(CloseCode::GoingAway, "the relay stops");
    auto delay = std::make_shared<asio::steady_timer>(io_, kStopDelay);
    delay->async_wait([this, delay](beast::error_code) { io_.stop(); });
  });
}

asio::awaitable<void> Server::accept() {
  for (;;) {
    auto [error, socket] = co_await acceptor_.async_accept(kAsTuple);
    if (stopping_) co_return;
    if (error) {
      log_.write("", "", "cannot accept a connection: " + error.message());
      asio::steady_timer pause(io_, kAcceptPause);
      co_await pause.async_wait(kAsTuple);
      continue;
    }
    if (connections_ >= limits_.connections) {
      log_.write("", "", "connection refused: too many are open");
      continue;
    }
    asio::co_spawn(io_, serve(std::move(socket)), asio::detached);
  }
}

asio::awaitable<void> Server::tick() {
  asio::steady_timer timer(io_);
  while (!stopping_) {
    timer.expires_after(limits_.tick);
    co_await timer.async_wait(kAsTuple);
    parts_.watchdog.tick(Clock::now());
  }
}

asio::awaitable<void> Server::serve(tcp::socket socket) {
  ++connections_;
  beast::error_code error;
  const tcp::endpoint endpoint = socket.remote_endpoint(error);
  const std::string source = endpoint.address().to_string();
  const std::string peer = source + ':' + std::to_string(endpoint.port());
  socket.set_option(tcp::no_delay(true), error);
  try {
    co_await serve_requests(TlsStream(beast::tcp_stream(std::move(socket)), tls_), peer, source);
  } catch (const std::exception& failure) {
    log_.write(peer, "", failure.what());
  }
  --connections_;
}

asio::awaitable<void> Server::serve_requests(TlsStream stream, std::string peer, std::string source) {
  auto& lowest = beast::get_lowest_layer(stream);
  lowest.expires_after(limits_.handshake);
  const auto [tls_error] = co_await stream.async_handshake(asio::ssl::stream_base::server, kAsTuple);
  if (tls_error) {
    log_.write(peer, "", "TLS handshake failed: " + tls_error.message());
    co_return;
  }
  beast::flat_buffer buffer;
  auto time_limit = limits_.handshake;
  for (;;) {
    http::request_parser<http::string_body> parser;
    parser.header_limit(static_cast<std::uint32_t>(limits_.http_header));
    parser.body_limit(limits_.http_body);
    lowest.expires_after(time_limit);
    time_limit = limits_.keep_alive;
    const auto [error, size] = co_await http::async_read(stream, buffer, parser, kAsTuple);
    if (error) {
      if (size > 0 && error != http::error::end_of_stream) {
        log_.write(peer, "", "bad request: " + error.message());
        co_await refuse(stream, error);
      }
      co_return;
    }
    const Request request = parser.release();
    Reply reply;
    if (websocket::is_upgrade(request)) {
      if (auto caller = admit(request, peer, reply))
        co_return co_await serve_upgrade(std::move(stream), request, std::move(*caller), peer, source);
    } else {
      reply = co_await answer(request, peer, source);
    }
    if (request.method() == http::verb::head) reply.body() = {};
    if (!co_await write(stream, reply) || !reply.keep_alive()) co_return;
  }
}

// Each piece of the reply has its own time limit, because an installer may take minutes on a slow connection.
asio::awaitable<bool> Server::write(TlsStream& stream, Reply& reply) {
  http::response_serializer<ReplyBody> rest(reply);
  while (!rest.is_done()) {
    beast::get_lowest_layer(stream).expires_after(limits_.handshake);
    const auto [error, size] = co_await http::async_write_some(stream, rest, kAsTuple);
    if (error) co_return false;
  }
  co_return true;
}

// Sends a reply to a peer whose request could not be read.
asio::awaitable<void> Server::refuse(TlsStream& stream, beast::error_code error) {
  Request request;
  request.version(11);
  request.keep_alive(false);
  HttpStatus status = HttpStatus::bad_request;
  if (error == http::error::body_limit) status = HttpStatus::payload_too_large;
  if (error == http::error::header_limit) status = HttpStatus::request_header_fields_too_large;
  Reply reply = error_reply(request, status, "The relay cannot read the request: " + error.message() + '.');
  beast::get_lowest_layer(stream).expires_after(limits_.handshake);
  co_await write(stream, reply);
  co_await stream.async_shutdown(kAsTuple);
}

asio::awaitable<Reply> Server::answer(const Request& request, const std::string& peer,
                                      const std::string& source) {
  const std::string_view path = path_of(request);
  if (path.starts_with("/api/")) co_return co_await api_.answer(request, peer, source);
  if (path == "/link" || path == "/console") {
    co_return error_reply(request, HttpStatus::upgrade_required, "This path is for WebSockets.");
  }
  if (names_update(path)) co_return serve_update(updates_, request);
  co_return serve_file(console_, request);
}

std::optional<Server::Caller> Server::admit(const Request& request, const std::string& peer, Reply& refusal) {
  const std::string_view path = path_of(request);
  if (path == "/link") return Caller{true, {}};
  if (path != "/console") {
    refusal = error_reply(request, HttpStatus::not_found, "There is no WebSocket on this path.");
    return std::nullopt;
  }
  if (!same_origin(request)) {
    log_.write(peer, "", "refused a browser's WebSocket from another origin");
    refusal = error_reply(request, HttpStatus::forbidden, "The request came from another site.");
    return std::nullopt;
  }
  auto login = api_.login_of(request);
  if (!login) {
    log_.write(peer, "", "refused a browser's WebSocket without a log-in");
    refusal = error_reply(request, HttpStatus::unauthorized, "Please log in.");
    return std::nullopt;
  }
  return Caller{false, std::move(*login)};
}

asio::awaitable<void> Server::serve_upgrade(TlsStream stream, Request request, Caller caller,
                                            std::string peer, std::string source) {
  beast::get_lowest_layer(stream).expires_never();
  WebSocketLink::Stream socket(std::move(stream));
  // The watchdog enforces the time limits after the upgrade.
  socket.set_option(
      websocket::stream_base::timeout{limits_.handshake, websocket::stream_base::none(), false});
  const char* protocol = caller.agent ? kAgentProtocol : kConsoleProtocol;
  socket.set_option(websocket::stream_base::decorator([protocol](websocket::response_type& response) {
    response.set(http::field::sec_websocket_protocol, protocol);
  }));
  const auto [error] = co_await socket.async_accept(request, kAsTuple);
  if (error) {
    log_.write(peer, "", "WebSocket upgrade failed: " + error.message());
    co_return;
  }
  const auto link =
      WebSocketLink::create(std::move(socket), limits_.queue_bytes, caller.agent ? kToAgent : kToBrowser);
  if (caller.agent) co_return co_await serve_agent(agents_, link, peer, source);
  const auto console = std::make_shared<ConsolePeer>();
  console->address = peer;
  console->representative = caller.login.user;
  console->login = caller.login.token_hash;
  co_await serve_console(parts_, limits_, link, console);
}

}  // namespace vlk::relay
