// Blocking sockets with Winsock.
#include "net/socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>

#include "net/connect_first.h"

namespace vlk {
namespace {

constexpr std::size_t kLargestTransfer = 0x40000000;  // bytes per call, whose size argument is an int

SocketHandle connect_to(const addrinfo& address) {
  const SOCKET candidate = ::socket(address.ai_family, address.ai_socktype, address.ai_protocol);
  if (candidate == INVALID_SOCKET) return kInvalidSocket;
  if (::connect(candidate, address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) return candidate;
  ::closesocket(candidate);
  return kInvalidSocket;
}

}  // namespace

static_assert(sizeof(SocketHandle) == sizeof(SOCKET) && kInvalidSocket == INVALID_SOCKET);

void start_sockets() {
  WSADATA data;
  ::WSAStartup(MAKEWORD(2, 2), &data);
}

void end_sockets() {
  ::WSACleanup();
}

SocketHandle connect_socket(const std::string& host, std::uint32_t port) {
  return connect_first<addrinfo, ::getaddrinfo, ::freeaddrinfo>(host, port, SOCK_STREAM, connect_to);
}

void send_at_once(SocketHandle socket) {
  const std::int32_t on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

std::ptrdiff_t receive_some(SocketHandle socket, unsigned char* buffer, std::size_t size) {
  return ::recv(socket, reinterpret_cast<char*>(buffer), static_cast<int>(std::min(size, kLargestTransfer)),
                0);
}

bool send_all(SocketHandle socket, const unsigned char* data, std::size_t length) {
  while (length > 0) {
    const int count = ::send(socket, reinterpret_cast<const char*>(data),
                             static_cast<int>(std::min(length, kLargestTransfer)), 0);
    if (count <= 0) return false;
    data += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

void close_socket(SocketHandle socket) {
  ::closesocket(socket);
}

void SharedSocket::interrupt() {
  close();
}

void SharedSocket::close() {
  const SocketHandle socket = handle_.exchange(kInvalidSocket);
  if (socket != kInvalidSocket) close_socket(socket);
}

}  // namespace vlk
