// Reads a connection's counters and sets its limits. This file includes no other network header, because the
// kernel's header and the C library's define the same names, and the latter's structure ends before these
// counters.
#include "relay/net/tcp/tcp_progress.h"

#include <linux/in.h>
#include <linux/tcp.h>
#include <sys/socket.h>

namespace vlk::relay {

TcpProgress tcp_progress(int socket) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return {};
  return {info.tcpi_bytes_acked, info.tcpi_unacked > 0 || info.tcpi_notsent_bytes > 0};
}

void limit_unsent(int socket, std::size_t bytes) {
  const int limit = static_cast<int>(bytes);
  (void)::setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &limit, sizeof limit);
}

}  // namespace vlk::relay
