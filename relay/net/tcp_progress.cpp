// Reads a connection's counters. This file includes no other network header, because the kernel's header and
// the C library's define the same names, and the latter's structure ends before these counters.
#include "relay/net/tcp_progress.h"

#include <linux/in.h>
#include <linux/tcp.h>
#include <sys/socket.h>

namespace vlk::relay {

std::uint64_t confirmed_bytes(int socket) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 0;
  return info.tcpi_bytes_acked;
}

}  // namespace vlk::relay
