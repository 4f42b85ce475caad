// Connects, and reads and writes frames.
#include "support/peers/raw_agent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace vantelink_test {

RawAgent::RawAgent(unsigned short port, const char* source)
    : context_(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free), ssl_(SSL_new(context_.get()), &SSL_free) {
  std::signal(SIGPIPE, SIG_IGN);
  socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (source) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = ::inet_addr(source);
    if (::bind(socket_, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0)
      throw std::runtime_error(std::string("cannot use the address ") + source);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect to port " + std::to_string(port));
  }
  // As the agent does. Otherwise the end of a message can wait for the relay's next packet.
  const int on = 1;
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  SSL_set_fd(ssl_.get(), socket_);
  if (SSL_connect(ssl_.get()) != 1) throw std::runtime_error("the TLS handshake failed");
  std::string key;
  const std::string request = vlk::build_upgrade_request("localhost", "/link", key);
  SSL_write(ssl_.get(), request.data(), static_cast<int>(request.size()));
  std::string response;
  while (response.find("\r\n\r\n") == std::string::npos) {
    char buffer[1];
    if (SSL_read(ssl_.get(), buffer, 1) != 1)
      throw std::runtime_error("the relay did not answer the upgrade request");
    response += buffer[0];
  }
  if (response.find(" 101 ") == std::string::npos)
    throw std::runtime_error("the relay refused the upgrade: " + response);
}

RawAgent::~RawAgent() {
  ::close(socket_);
}

void RawAgent::send(vlk::Msg type, const std::string& payload) {
  const auto bytes = vlk::encode_envelope(type, 0, reinterpret_cast<const unsigned char*>(payload.data()),
                                          payload.size(), vlk::kJsonPayload);
  send_bytes({bytes.begin(), bytes.end()});
}

void RawAgent::send_bytes(const std::string& bytes) {
  const auto frame = vlk::encode_frame(vlk::kWsBinary, reinterpret_cast<const unsigned char*>(bytes.data()),
                                       bytes.size(), true);
  SSL_write(ssl_.get(), frame.data(), static_cast<int>(frame.size()));
}

void RawAgent::send_raw(const std::string& bytes) {
  SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size()));
}

bool RawAgent::fill() {
  unsigned char buffer[4096];
  const int count = SSL_read(ssl_.get(), buffer, sizeof buffer);
  if (count <= 0) return false;
  parser_.feed(buffer, static_cast<std::size_t>(count));
  return true;
}

vlk::Envelope RawAgent::read() {
  for (;;) {
    while (const auto frame = parser_.next()) {
      vlk::Envelope envelope;
      if (vlk::decode_envelope(frame->payload.data(), frame->payload.size(), envelope)) return envelope;
    }
    if (!fill()) throw std::runtime_error("the relay closed the connection");
  }
}

bool RawAgent::closed() {
  while (fill()) {
    while (const auto frame = parser_.next()) {
      if (frame->opcode == vlk::kWsClose) return true;
    }
  }
  return true;
}

}  // namespace vantelink_test
