// Blocking TCP sockets and name resolution.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vlk {

// A socket handle as an integer wide enough for either platform, so that it can be held in an atomic.
using SocketHandle = std::uintptr_t;
inline constexpr SocketHandle kInvalidSocket = ~SocketHandle{0};

// Reference-counted start and end of the platform's socket library (Winsock 2.2). Results are not looked at.
void start_sockets();
void end_sockets();

// Resolves `host` and connects to the first of its addresses that accepts, in the resolver's order, blocking
// for as long as the system does. kInvalidSocket when none could be had.
SocketHandle connect_socket(const std::string& host, std::uint32_t port);

// Switches Nagle's delay off, so that small messages do not wait. The result is not looked at.
void send_at_once(SocketHandle socket);

// Blocking transfer. Receive: bytes read, 0 at the end of the stream, below 0 on failure. Send: whether every
// byte was handed to the system.
std::ptrdiff_t receive_some(SocketHandle socket, unsigned char* buffer, std::size_t size);
bool send_all(SocketHandle socket, const unsigned char* data, std::size_t length);

// Callable by any thread while the owner has not closed it: blocked and later transfers return at once. On
// Windows this closes the handle, and the owner's close_socket then fails harmlessly.
void interrupt_socket(SocketHandle socket);

// Called by the owning thread, once. The result is not looked at.
void close_socket(SocketHandle socket);

}  // namespace vlk
