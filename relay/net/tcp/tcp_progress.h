// What the operating system counts and holds of a TCP connection.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::relay {

struct TcpProgress {
  std::uint64_t confirmed = 0;  // bytes that the peer's system has confirmed so far
  bool unconfirmed = false;     // the system has bytes that the peer's has not confirmed
};

// What the connection has done so far; nothing if `socket` is not a TCP socket.
[[nodiscard]] TcpProgress tcp_progress(int socket);

// Sets how many bytes the system accepts beyond those that it has sent to the peer. More would wait where
// nothing can overtake them.
void limit_unsent(int socket, std::size_t bytes);

}  // namespace vlk::relay
