// Implements net/socket.h in place of net/socket_posix.cpp.
#include "machine/network.h"

#include <atomic>

#include "net/socket.h"
#include "require.h"

namespace vlk {
namespace {

agent::fuzz::Server* server = nullptr;
std::atomic<SocketHandle> opened{kInvalidSocket};  // the only socket; sockets are numbered from 1
std::atomic<SocketHandle> last{0};
std::atomic<bool> interrupted{false};  // all transfers of the socket fail
thread_local bool connecting = false;

}  // namespace

namespace agent::fuzz {

Network::Network(Server& peer) {
  REQUIRE(server == nullptr);
  server = &peer;
  opened = kInvalidSocket;
  last = 0;
  connecting = false;
}

Network::~Network() {
  REQUIRE(opened == kInvalidSocket);
  server = nullptr;
}

bool on_connecting_thread() {
  return connecting;
}

}  // namespace agent::fuzz

void start_sockets() {}

void end_sockets() {}

SocketHandle connect_socket(const std::string& host, std::uint32_t port) {
  connecting = true;
  REQUIRE(opened == kInvalidSocket);
  if (!server->accept(host, port)) return kInvalidSocket;
  interrupted = false;
  opened = ++last;
  return opened;
}

void send_at_once(SocketHandle socket) {
  REQUIRE(socket == opened);
}

std::ptrdiff_t receive_some(SocketHandle socket, unsigned char* buffer, std::size_t size) {
  REQUIRE(socket == opened && connecting && size > 0);
  return interrupted ? 0 : server->give(buffer, size);
}

bool send_all(SocketHandle socket, const unsigned char* data, std::size_t length) {
  REQUIRE(socket == opened);
  return !interrupted && server->take(data, length);
}

void close_socket(SocketHandle socket) {
  REQUIRE(socket == opened && socket != kInvalidSocket);
  opened = kInvalidSocket;
}

void SharedSocket::interrupt() {
  if (handle_ != kInvalidSocket) interrupted = true;
  if (!connecting && server != nullptr) server->interrupted();
}

void SharedSocket::close() {
  const SocketHandle socket = handle_.exchange(kInvalidSocket);
  if (socket != kInvalidSocket) close_socket(socket);
}

}  // namespace vlk
