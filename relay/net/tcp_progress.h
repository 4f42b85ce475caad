// How far a TCP connection has come, as the operating system counts it.
#pragma once

#include <cstdint>

namespace vlk::relay {

// The number of bytes that the peer's system has confirmed so far; 0 if `socket` is not a TCP socket.
[[nodiscard]] std::uint64_t confirmed_bytes(int socket);

}  // namespace vlk::relay
