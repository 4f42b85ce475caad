// Name resolution and the choice of an address, shared by socket_posix.cpp and socket_win32.cpp. The system's
// resolver is a template argument, so that this header needs no system header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "net/socket.h"

namespace vlk {

// Resolves `host` with Resolve (getaddrinfo) and calls connect(address) for each address in the resolver's
// order until a call gives a socket. `kind` is SOCK_STREAM. Returns kInvalidSocket if no call gives a socket.
template <typename Address, auto Resolve, auto Release, typename Connect>
[[nodiscard]] SocketHandle connect_first(const std::string& host, std::uint32_t port, int kind,
                                         Connect connect) {
  Address hints{};
  hints.ai_socktype = kind;
  Address* found = nullptr;
  if (Resolve(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return kInvalidSocket;
  const std::unique_ptr<Address, decltype(Release)> addresses(found, Release);
  for (const Address* address = addresses.get(); address != nullptr; address = address->ai_next) {
    const SocketHandle socket = connect(*address);
    if (socket != kInvalidSocket) return socket;
  }
  return kInvalidSocket;
}

}  // namespace vlk
