// The scripted server over non-blocking sockets, so that every wait has a deadline.
#include "support/peers/scripted_server.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <openssl/err.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vantelink_test {
namespace {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// Waits for the descriptor; false at the deadline.
bool wait_for(int descriptor, short events, Deadline deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now()).count();
    pollfd entry{descriptor, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) return false;
  }
}

// After a call that did not succeed: waits for what it wants; false when it wants nothing or the time is
// over.
bool wait_for_ssl(SSL* ssl, int descriptor, int result, Deadline deadline) {
  switch (SSL_get_error(ssl, result)) {
    case SSL_ERROR_WANT_READ:
      return wait_for(descriptor, POLLIN, deadline);
    case SSL_ERROR_WANT_WRITE:
      return wait_for(descriptor, POLLOUT, deadline);
    default:
      return false;
  }
}

}  // namespace

ServerConnection::ServerConnection(int socket, SSL_CTX* context)
    : socket_(socket), ssl_(SSL_new(context), &SSL_free) {
  ::fcntl(socket_, F_SETFL, O_NONBLOCK);
  const int on = 1;
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  SSL_set_fd(ssl_.get(), socket_);
}

ServerConnection::~ServerConnection() {
  if (socket_ >= 0) ::close(socket_);
}

bool ServerConnection::speaks() const {
  return wait_for(socket_, POLLIN, Clock::now());
}

bool ServerConnection::handshake(Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  for (;;) {
    ERR_clear_error();
    const int result = SSL_accept(ssl_.get());
    if (result == 1) return true;
    if (!wait_for_ssl(ssl_.get(), socket_, result, deadline)) return false;
  }
}

bool ServerConnection::fill(Deadline deadline) {
  for (;;) {
    unsigned char buffer[16384];
    ERR_clear_error();
    const int count = SSL_read(ssl_.get(), buffer, sizeof buffer);
    if (count > 0) {
      if (upgraded_) {
        parser_.feed(buffer, static_cast<std::size_t>(count));
      } else {
        text_.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(count));
      }
      return true;
    }
    if (SSL_get_error(ssl_.get(), count) != SSL_ERROR_WANT_READ) return false;
    if (!wait_for(socket_, POLLIN, deadline)) time_out("bytes");
  }
}

void ServerConnection::time_out(const char* what) const {
  std::string got;
  for (const vlk::Envelope& one : received_)
    got += ' ' + std::to_string(one.type);
  throw std::runtime_error(std::string("the client sent no ") + what +
                           " in time; message types so far:" + got);
}

std::string ServerConnection::read_request() {
  const Deadline deadline = Clock::now() + kPatience;
  for (;;) {
    const std::size_t end = text_.find("\r\n\r\n");
    if (end != std::string::npos) {
      std::string request = text_.substr(0, end + 4);
      text_.erase(0, end + 4);
      return request;
    }
    if (!fill(deadline)) throw std::runtime_error("the client closed before its request was whole");
  }
}

void ServerConnection::send(std::string_view bytes) {
  const Deadline deadline = Clock::now() + kPatience;
  while (!bytes.empty()) {
    ERR_clear_error();
    const int count =
        SSL_write(ssl_.get(), bytes.data(), static_cast<int>(std::min<std::size_t>(bytes.size(), 16384)));
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (!wait_for_ssl(ssl_.get(), socket_, count, deadline)) {
      return;  // a client that has gone is for the test's next step to see
    }
  }
}

void ServerConnection::send(const std::vector<std::uint8_t>& bytes) {
  send(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string ServerConnection::upgrade(std::string_view behind) {
  std::string request = read_request();
  accept_upgrade(behind);
  return request;
}

void ServerConnection::accept_upgrade(std::string_view behind) {
  upgraded_ = true;
  send(std::string("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n")
           .append(behind));
  parser_.feed(reinterpret_cast<const unsigned char*>(text_.data()), text_.size());
}

void ServerConnection::send_frame(std::uint8_t opcode, std::string_view payload) {
  send(vlk::encode_frame(opcode, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(),
                         false));
}

void ServerConnection::send_envelope(vlk::Msg type, std::uint32_t session, std::string_view payload,
                                     std::uint8_t flags) {
  const std::vector<std::uint8_t> envelope = vlk::encode_envelope(
      type, session, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), flags);
  send_frame(vlk::kWsBinary, {reinterpret_cast<const char*>(envelope.data()), envelope.size()});
}

vlk::WsFrame ServerConnection::read_frame(Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  for (;;) {
    if (auto frame = parser_.next()) {
      vlk::Envelope envelope;
      if (frame->opcode == vlk::kWsBinary &&
          vlk::decode_envelope(frame->payload.data(), frame->payload.size(), envelope)) {
        received_.push_back(envelope);
      }
      return std::move(*frame);
    }
    if (parser_.failed) throw std::runtime_error("the client broke the framing");
    if (!fill(deadline)) throw std::runtime_error("the client closed the connection");
  }
}

vlk::Envelope ServerConnection::read_envelope(Milliseconds patience) {
  const vlk::WsFrame frame = read_frame(patience);
  vlk::Envelope envelope;
  if (frame.opcode != vlk::kWsBinary ||
      !vlk::decode_envelope(frame.payload.data(), frame.payload.size(), envelope)) {
    throw std::runtime_error("the client sent something else than an envelope");
  }
  return envelope;
}

vlk::Envelope ServerConnection::read_until(vlk::Msg type, Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  for (;;) {
    vlk::Envelope envelope =
        read_envelope(std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0)));
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

void ServerConnection::settle(Milliseconds patience) {
  send_envelope(vlk::Msg::Heartbeat, 0, "settle");
  while (text_of(read_until(vlk::Msg::Heartbeat, patience)) != "settle") {
  }
}

bool ServerConnection::wait_closed(Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  try {
    for (;;)
      read_frame(std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0)));
  } catch (const std::runtime_error&) {
    return Clock::now() < deadline;
  }
}

void ServerConnection::update_keys() {
  SSL_key_update(ssl_.get(), SSL_KEY_UPDATE_REQUESTED);
}

void ServerConnection::end_sending() {
  SSL_shutdown(ssl_.get());
}

void ServerConnection::close() {
  end_sending();
  cut_off();
}

void ServerConnection::cut_off() {
  ::shutdown(socket_, SHUT_RDWR);
  ::close(socket_);
  socket_ = -1;
}

void ServerConnection::abort() {
  const linger at_once{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  ::close(socket_);
  socket_ = -1;
}

std::string ServerConnection::server_name() const {
  const char* name = SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name);
  return name == nullptr ? "" : name;
}

std::string text_of(const vlk::Envelope& envelope) {
  return {envelope.payload.begin(), envelope.payload.end()};
}

ScriptedServer::ScriptedServer(const TestAuthority& authority) : ScriptedServer(authority, Options{}) {}

ScriptedServer::ScriptedServer(const TestAuthority& authority, const Options& options)
    : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
  // A client that goes away while it is written to must not end the test.
  std::signal(SIGPIPE, SIG_IGN);
  const TestAuthority::Identity identity =
      options.self_signed ? TestAuthority::issue_self_signed(options.names) : authority.issue(options.names);
  SSL_CTX_use_certificate(context_.get(), identity.certificate.get());
  SSL_CTX_use_PrivateKey(context_.get(), identity.key.get());
  // Security level 0 lets a test offer the old versions that a client must refuse.
  SSL_CTX_set_security_level(context_.get(), 0);
  SSL_CTX_set_min_proto_version(context_.get(), options.lowest_version);
  SSL_CTX_set_max_proto_version(context_.get(), options.highest_version);
  SSL_CTX_set_mode(context_.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);

  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 64) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("the scripted server cannot listen on the loopback address");
  }
  port_ = ntohs(address.sin_port);
}

ScriptedServer::~ScriptedServer() {
  ::close(listener_);
}

bool ScriptedServer::has_client(Milliseconds patience) {
  return !silent_.empty() || wait_for(listener_, POLLIN, Clock::now() + patience);
}

std::unique_ptr<ServerConnection> ScriptedServer::take() {
  const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  return std::make_unique<ServerConnection>(socket, context_.get());
}

std::unique_ptr<ServerConnection> ScriptedServer::accept(Milliseconds patience) {
  if (!has_client(patience)) throw std::runtime_error("no client connected in time");
  if (silent_.empty()) return take();
  std::unique_ptr<ServerConnection> first = std::move(silent_.front());
  silent_.erase(silent_.begin());
  return first;
}

std::unique_ptr<ServerConnection> ScriptedServer::accept_speaking(Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  while (Clock::now() <= deadline) {
    if (wait_for(listener_, POLLIN, Clock::now() + Milliseconds(5))) silent_.push_back(take());
    const auto one = std::find_if(silent_.begin(), silent_.end(), [](const auto& c) { return c->speaks(); });
    if (one == silent_.end()) continue;
    std::unique_ptr<ServerConnection> speaking = std::move(*one);
    silent_.erase(one);
    return speaking;
  }
  throw std::runtime_error("no client connected and spoke in time");
}

std::unique_ptr<ServerConnection> ScriptedServer::accept_upgraded(Milliseconds patience) {
  const Deadline deadline = Clock::now() + patience;
  for (;;) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
    std::unique_ptr<ServerConnection> connection = accept_speaking(std::max(left, Milliseconds(0)));
    // An agent that was ended may have left its look for an update in the queue.
    if (!connection->handshake()) continue;
    if (!connection->read_request().starts_with("GET /version.json ")) {
      connection->accept_upgrade();
      return connection;
    }
    connection->send("HTTP/1.1 404 Not Found\r\n\r\n");
    connection->close();
  }
}

}  // namespace vantelink_test
