// Blocking TCP sockets and name resolution.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vlk {

// A socket handle as an integer wide enough for either platform, so that it can be held in an atomic.
using SocketHandle = std::uintptr_t;
inline constexpr SocketHandle kInvalidSocket = ~SocketHandle{0};

// Start and end the use of the platform's socket library (Winsock 2.2), which counts these calls. Failures
// are ignored.
void start_sockets();
void end_sockets();

// Resolves `host` and connects to the first of its addresses that accepts, in the resolver's order. Blocks
// without a time limit other than the system's. kInvalidSocket if the name does not resolve or no address
// accepts.
[[nodiscard]] SocketHandle connect_socket(const std::string& host, std::uint32_t port);

// Turns Nagle's algorithm off, so that small messages are sent without delay. A failure is ignored.
void send_at_once(SocketHandle socket);

// Blocking transfers. receive_some returns the number of bytes read, 0 at the end of the stream, or a
// negative number on failure. send_all returns whether the system accepted every byte.
[[nodiscard]] std::ptrdiff_t receive_some(SocketHandle socket, unsigned char* buffer, std::size_t size);
[[nodiscard]] bool send_all(SocketHandle socket, const unsigned char* data, std::size_t length);

// Closes a socket that no other thread uses. A failure is ignored.
void close_socket(SocketHandle socket);

// A socket that its owner uses and that any thread may interrupt. The handle is invalidated in the same
// atomic step in which it is taken to be closed, so that it is closed once only: the system may already have
// given the same value to another socket when a second close comes.
class SharedSocket {
 public:
  // Stores an open socket; called by the owner while none is stored.
  void set(SocketHandle socket) { handle_ = socket; }

  // Makes blocked and later transfers on the socket return at once. Callable on any thread. On Windows this
  // closes the handle. Does nothing if no socket is stored.
  void interrupt();

  // Closes the socket. Called by the owner. Does nothing if no socket is stored. A failure is ignored.
  void close();

 private:
  std::atomic<SocketHandle> handle_{kInvalidSocket};
};

}  // namespace vlk
