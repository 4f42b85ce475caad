// Connects, and reads and writes bytes and frames.
#include "relay/net/strangers/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vlk::relay {
namespace {

// An address with a port, of either version of IP.
struct Endpoint {
  Endpoint(const std::string& address, unsigned short port) {
    const bool ipv6 = address.find(':') != std::string::npos;
    auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
    size = ipv6 ? sizeof v6 : sizeof v4;
    storage.ss_family = ipv6 ? AF_INET6 : AF_INET;
    (ipv6 ? v6.sin6_port : v4.sin_port) = htons(port);
    void* const bytes = ipv6 ? static_cast<void*>(&v6.sin6_addr) : &v4.sin_addr;
    ::inet_pton(storage.ss_family, address.c_str(), bytes);
  }
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }

  sockaddr_storage storage{};
  socklen_t size = 0;
};

SSL_CTX* client_context() {
  static const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> kContext(SSL_CTX_new(TLS_client_method()),
                                                                          &SSL_CTX_free);
  return kContext.get();
}

}  // namespace

RawPeer::RawPeer(unsigned short port, const std::string& from) {
  std::signal(SIGPIPE, SIG_IGN);
  const Endpoint own(from, 0);
  const Endpoint relay(own.storage.ss_family == AF_INET6 ? "::1" : "127.0.0.1", port);
  socket_ = ::socket(own.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::bind(socket_, own.get(), own.size) != 0 || ::connect(socket_, relay.get(), relay.size) != 0) {
    throw std::runtime_error("cannot connect to port " + std::to_string(port));
  }
}

RawPeer::~RawPeer() {
  close();
}

std::string RawPeer::half_hello() {
  const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(client_context()), &SSL_free);
  BIO* sent = BIO_new(BIO_s_mem());
  SSL_set_bio(ssl.get(), BIO_new(BIO_s_mem()), sent);
  (void)SSL_connect(ssl.get());
  char bytes[64];
  const int size = BIO_read(sent, bytes, sizeof bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

bool RawPeer::send_plain(const std::string& bytes) {
  return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

void RawPeer::start_tls() {
  ssl_.reset(SSL_new(client_context()));
  SSL_set_fd(ssl_.get(), socket_);
  if (SSL_connect(ssl_.get()) != 1) throw std::runtime_error("the TLS handshake failed");
}

void RawPeer::upgrade(const std::string& target, const std::string& header_lines) {
  std::string key;
  std::string request = build_upgrade_request("localhost", target, key);
  request.insert(request.size() - 2, header_lines);
  send(request);
  const std::string answer = read_header();
  if (answer.find(" 101 ") == std::string::npos)
    throw std::runtime_error("the upgrade was refused: " + answer);
}

std::string RawPeer::read_header() {
  std::string header;
  while (!header.ends_with("\r\n\r\n")) {
    unsigned char byte = 0;
    if (read_some(&byte, 1) != 1) break;
    header += static_cast<char>(byte);
  }
  return header;
}

unsigned RawPeer::request(const std::string& method, const std::string& target, const std::string& body,
                          const std::string& header_lines) {
  send(method + ' ' + target + " HTTP/1.1\r\nHost: localhost\r\nOrigin: https://localhost\r\n" +
       header_lines + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  const std::string header = read_header();
  constexpr std::string_view kLength = "Content-Length: ";
  const std::size_t at = header.find(kLength);
  std::size_t rest = at == std::string::npos ? 0 : std::stoul(header.substr(at + kLength.size()));
  std::vector<unsigned char> bytes(4096);
  while (rest > 0) {
    const int count = read_some(bytes.data(), static_cast<int>(std::min(rest, bytes.size())));
    if (count <= 0) return 0;
    rest -= static_cast<std::size_t>(count);
  }
  return header.starts_with("HTTP/1.1 ") ? static_cast<unsigned>(std::stoul(header.substr(9))) : 0;
}

bool RawPeer::try_send(const std::string& bytes) {
  if (!ssl_) return send_plain(bytes);
  return SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
}

std::string RawPeer::frame(std::uint8_t opcode, const std::string& content) {
  const auto bytes =
      encode_frame(opcode, reinterpret_cast<const unsigned char*>(content.data()), content.size(), true);
  return {bytes.begin(), bytes.end()};
}

std::string RawPeer::message_frame(Msg type, std::uint32_t session, const std::string& json) {
  const auto bytes = encode_envelope(type, session, reinterpret_cast<const unsigned char*>(json.data()),
                                     json.size(), kJsonPayload);
  return frame(kWsBinary, {bytes.begin(), bytes.end()});
}

void RawPeer::send_message(Msg type, std::uint32_t session, const std::string& json) {
  send(message_frame(type, session, json));
}

int RawPeer::read_some(unsigned char* bytes, int size) {
  if (socket_ < 0) return 0;
  return ssl_ ? SSL_read(ssl_.get(), bytes, size)
              : static_cast<int>(::recv(socket_, bytes, static_cast<std::size_t>(size), 0));
}

std::size_t RawPeer::read_bytes(std::size_t most) {
  unsigned char bytes[16 * 1024];
  const int count = read_some(bytes, static_cast<int>(std::min(most, sizeof bytes)));
  if (count <= 0) throw std::runtime_error("the relay has closed the connection");
  return static_cast<std::size_t>(count);
}

WsFrame RawPeer::read_frame() {
  for (;;) {
    if (auto frame = parser_.next()) return std::move(*frame);
    unsigned char bytes[16 * 1024];
    const int count = read_some(bytes, sizeof bytes);
    if (count <= 0) throw std::runtime_error("the relay closed the connection");
    parser_.feed(bytes, static_cast<std::size_t>(count));
  }
}

std::string RawPeer::read_message(Msg type) {
  for (;;) {
    const WsFrame frame = read_frame();
    Envelope envelope;
    if (!decode_envelope(frame.payload.data(), frame.payload.size(), envelope)) continue;
    if (envelope.type != static_cast<std::uint8_t>(type)) continue;
    session_ = envelope.session_id;
    return {envelope.payload.begin(), envelope.payload.end()};
  }
}

void RawPeer::read_text(const std::string& part) {
  for (;;) {
    const WsFrame frame = read_frame();
    const std::string text(frame.payload.begin(), frame.payload.end());
    if (frame.opcode == kWsText && text.find(part) != std::string::npos) return;
  }
}

void RawPeer::limit_waits(std::chrono::milliseconds limit) {
  timeval time{};
  time.tv_sec = static_cast<time_t>(limit.count() / 1000);
  time.tv_usec = static_cast<suseconds_t>(limit.count() % 1000 * 1000);
  ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
}

bool RawPeer::ended() {
  unsigned char bytes[4096];
  while (read_some(bytes, sizeof bytes) > 0) {
  }
  return true;
}

void RawPeer::close() {
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
}

void RawPeer::reset() {
  const linger at_once{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close();
}

void RawPeer::half_close() {
  ::shutdown(socket_, SHUT_WR);
}

void RawPeer::finish() {
  if (ssl_) SSL_shutdown(ssl_.get());
}

}  // namespace vlk::relay
