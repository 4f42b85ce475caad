// Sockets, certificate and TLS contexts of the bare connections.
#include "tls_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace vantelink_bench {

using vantelink_test::TestAuthority;

namespace {

// Starts TLS on a connected socket. Nagle's algorithm is off, as in the agent.
Ssl tls_over(int socket, SSL_CTX* context, int (*handshake)(SSL*)) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  Ssl ssl(SSL_new(context), &SSL_free);
  SSL_set_fd(ssl.get(), socket);
  if (handshake(ssl.get()) != 1) throw std::runtime_error("the TLS handshake failed");
  return ssl;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace

const TestAuthority& authority() {
  static const TestAuthority kAuthority;
  return kAuthority;
}

void write_all(SSL* ssl, const void* bytes, std::size_t size) {
  if (SSL_write(ssl, bytes, static_cast<int>(size)) != static_cast<int>(size))
    throw std::runtime_error("the peer has closed the connection");
}

std::size_t read_some(SSL* ssl, unsigned char* bytes, std::size_t size) {
  const int count = SSL_read(ssl, bytes, static_cast<int>(size));
  if (count <= 0) throw std::runtime_error("the peer has closed the connection");
  return static_cast<std::size_t>(count);
}

TlsListener::TlsListener() : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
  std::signal(SIGPIPE, SIG_IGN);
  const TestAuthority::Identity identity = authority().issue({"localhost"});
  SSL_CTX_use_certificate(context_.get(), identity.certificate.get());
  SSL_CTX_use_PrivateKey(context_.get(), identity.key.get());
  listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  (void)::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  ::listen(listener_, 8);
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
}

TlsListener::~TlsListener() {
  ::close(listener_);
}

Ssl TlsListener::accept() const {
  return tls_over(::accept(listener_, nullptr, nullptr), context_.get(), SSL_accept);
}

Ssl connect_to(const TlsListener& listener, SSL_CTX* context) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = loopback(listener.port);
  (void)::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return tls_over(socket, context, SSL_connect);
}

void close_connection(const Ssl& ssl) {
  ::close(SSL_get_fd(ssl.get()));
}

}  // namespace vantelink_bench
