// Blocking TCP sockets and name resolution.
#pragma once

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

// Makes blocked and later transfers on the socket return at once. Callable on any thread until the owner
// closes the socket. On Windows this closes the handle, and the owner's later close_socket fails without
// harm.
void interrupt_socket(SocketHandle socket);

// Closes the socket. Called once, on the owning thread. A failure is ignored.
void close_socket(SocketHandle socket);

}  // namespace vlk
