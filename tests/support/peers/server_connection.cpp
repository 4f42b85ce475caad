// Non-blocking TLS, so that every wait has a deadline.
#include "support/peers/server_connection.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include <openssl/err.h>

#include "support/peers/descriptor_wait.h"

namespace vantelink_test {
namespace {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

Milliseconds time_left(Deadline deadline) {
  return std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0));
}

// Waits for the event that OpenSSL needs before an unsuccessful call is repeated. Returns false at the
// deadline, and when the call must not be repeated.
bool wait_for_ssl(SSL* ssl, int descriptor, int result, Deadline deadline) {
  switch (SSL_get_error(ssl, result)) {
    case SSL_ERROR_WANT_READ:
      return wait_for_descriptor(descriptor, POLLIN, deadline);
    case SSL_ERROR_WANT_WRITE:
      return wait_for_descriptor(descriptor, POLLOUT, deadline);
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

bool ServerConnection::has_input(Milliseconds timeout) const {
  return wait_for_descriptor(socket_, POLLIN, Clock::now() + timeout);
}

bool ServerConnection::handshake(Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
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
    if (!wait_for_descriptor(socket_, POLLIN, deadline)) time_out();
  }
}

void ServerConnection::time_out() const {
  std::string types;
  for (const vlk::Envelope& one : received_)
    types += ' ' + std::to_string(one.type);
  throw std::runtime_error("the client sent nothing in time; types of the messages before:" + types);
}

std::string ServerConnection::read_request() {
  constexpr std::string_view kMethod = "GET ";
  const Deadline deadline = Clock::now() + kPatience;
  for (;;) {
    if (!kMethod.starts_with(std::string_view(text_).substr(0, kMethod.size()))) throw NotAGetRequest();
    const std::size_t end = text_.find("\r\n\r\n");
    if (end != std::string::npos) {
      std::string request = text_.substr(0, end + 4);
      text_.erase(0, end + 4);
      return request;
    }
    if (!fill(deadline))
      throw std::runtime_error("the client closed the connection before its request was complete");
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
      return;  // the test's next step notices that the client has closed the connection
    }
  }
}

void ServerConnection::send(const std::vector<std::uint8_t>& bytes) {
  send(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string ServerConnection::upgrade(std::string_view following) {
  std::string request = read_request();
  accept_upgrade(following);
  return request;
}

void ServerConnection::accept_upgrade(std::string_view following) {
  upgraded_ = true;
  send(std::string("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n")
           .append(following));
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

vlk::WsFrame ServerConnection::read_frame(Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
  for (;;) {
    if (auto frame = parser_.next()) {
      vlk::Envelope envelope;
      if (frame->opcode == vlk::kWsBinary &&
          vlk::decode_envelope(frame->payload.data(), frame->payload.size(), envelope)) {
        received_.push_back(envelope);
      }
      return std::move(*frame);
    }
    if (parser_.failed) throw std::runtime_error("the client sent bytes that are not a WebSocket frame");
    if (!fill(deadline)) throw std::runtime_error("the client closed the connection");
  }
}

vlk::Envelope ServerConnection::read_envelope(Milliseconds timeout) {
  const vlk::WsFrame frame = read_frame(timeout);
  vlk::Envelope envelope;
  if (frame.opcode != vlk::kWsBinary ||
      !vlk::decode_envelope(frame.payload.data(), frame.payload.size(), envelope)) {
    throw std::runtime_error("the client sent a frame that is not an envelope");
  }
  return envelope;
}

vlk::Envelope ServerConnection::read_until(vlk::Msg type, Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
  for (;;) {
    vlk::Envelope envelope = read_envelope(time_left(deadline));
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

void ServerConnection::settle(Milliseconds timeout) {
  send_envelope(vlk::Msg::Heartbeat, 0, "settle");
  while (text_of(read_until(vlk::Msg::Heartbeat, timeout)) != "settle") {
  }
}

bool ServerConnection::wait_closed(Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
  try {
    for (;;)
      read_frame(time_left(deadline));
  } catch (const std::runtime_error&) {
    return Clock::now() < deadline;
  }
}

bool ServerConnection::update_keys() {
  return SSL_key_update(ssl_.get(), SSL_KEY_UPDATE_REQUESTED) == 1;
}

bool ServerConnection::issue_ticket() {
  return SSL_new_session_ticket(ssl_.get()) == 1;
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

bool ServerConnection::client_ended_sending() const {
  return (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) != 0;
}

std::string ServerConnection::server_name() const {
  const char* name = SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name);
  return name == nullptr ? "" : name;
}

std::string text_of(const vlk::Envelope& envelope) {
  return {envelope.payload.begin(), envelope.payload.end()};
}

}  // namespace vantelink_test
