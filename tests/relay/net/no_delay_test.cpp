// The relay sends small messages at once: its sockets do not wait for confirmations of earlier segments.
#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdlib>
#include <vector>

#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

// The sockets of this process that a listener on this port has accepted.
std::vector<int> accepted_at(int port) {
  std::vector<int> sockets;
  DIR* const folder = ::opendir("/proc/self/fd");
  while (const dirent* const entry = ::readdir(folder)) {
    const int descriptor = std::atoi(entry->d_name);
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t size = sizeof own;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) != 0) continue;
    size = sizeof peer;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    if (own.sin_family == AF_INET && ntohs(own.sin_port) == port) sockets.push_back(descriptor);
  }
  ::closedir(folder);
  return sockets;
}

using NoDelayTest = RelayTest;

TEST_F(NoDelayTest, SocketsOfMachinesAndBrowsersSendAtOnce) {
  const auto agent = connect_agent("desk of ada");
  const auto browser = console();
  const std::vector<int> sockets = accepted_at(port_);
  EXPECT_GE(sockets.size(), 2u);
  for (const int socket : sockets) {
    int on = 0;
    socklen_t size = sizeof on;
    ASSERT_EQ(::getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, &size), 0);
    EXPECT_NE(on, 0) << socket;
  }
}

}  // namespace
}  // namespace vlk::relay
