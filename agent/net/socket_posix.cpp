// Blocking sockets of a POSIX system, for native builds.
#include "net/socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "net/connect_first.h"

namespace vlk {
namespace {

int descriptor(SocketHandle socket) {
  return static_cast<int>(socket);
}

SocketHandle connect_to(const addrinfo& address) {
  const int candidate = ::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol);
  if (candidate < 0) return kInvalidSocket;
  if (::connect(candidate, address.ai_addr, address.ai_addrlen) == 0)
    return static_cast<SocketHandle>(candidate);
  ::close(candidate);
  return kInvalidSocket;
}

}  // namespace

void start_sockets() {}

void end_sockets() {}

SocketHandle connect_socket(const std::string& host, std::uint32_t port) {
  return connect_first<addrinfo, ::getaddrinfo, ::freeaddrinfo>(host, port, SOCK_STREAM, connect_to);
}

void send_at_once(SocketHandle socket) {
  const int on = 1;
  ::setsockopt(descriptor(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::ptrdiff_t receive_some(SocketHandle socket, unsigned char* buffer, std::size_t size) {
  for (;;) {
    const ssize_t count = ::recv(descriptor(socket), buffer, size, 0);
    if (count >= 0 || errno != EINTR) return count;
  }
}

bool send_all(SocketHandle socket, const unsigned char* data, std::size_t length) {
  while (length > 0) {
    const ssize_t count = ::send(descriptor(socket), data, length, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    data += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

void close_socket(SocketHandle socket) {
  ::close(descriptor(socket));
}

void SharedSocket::interrupt() {
  // The descriptor is not closed here: the system could reuse its number for another file while the owner
  // still uses it.
  const SocketHandle socket = handle_;
  if (socket != kInvalidSocket) ::shutdown(descriptor(socket), SHUT_RDWR);
}

void SharedSocket::close() {
  const SocketHandle socket = handle_.exchange(kInvalidSocket);
  if (socket != kInvalidSocket) close_socket(socket);
}

}  // namespace vlk
