// The network of the agent: one server in the same process. The sources in this folder implement net/socket.h
// and the TLS of both users of it (the client and the fetch of updates) over this server, without encryption.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vlk::agent::fuzz {

// The server's side of all connections of the agent.
class Server {
 public:
  Server() = default;
  virtual ~Server() = default;
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Whether the next connection is accepted. Called on the connecting thread.
  [[nodiscard]] virtual bool accept(const std::string& host, std::uint32_t port) = 0;
  // Writes the next bytes for the agent to `buffer`, at most `size`. Returns their number; 0 or less at the
  // end. Called on the connecting thread.
  [[nodiscard]] virtual std::ptrdiff_t give(unsigned char* buffer, std::size_t size) = 0;
  // Takes bytes from the agent; false makes the transfer fail. Called on any thread, by one at a time.
  [[nodiscard]] virtual bool take(const unsigned char* data, std::size_t size) = 0;
  // A thread other than the connecting one has interrupted the agent's connection, or would have.
  virtual void interrupted() {}
};

// Makes `peer` the server of all connections for the lifetime of the object; at most one object exists at a
// time. Requires at its end that each socket was closed exactly once.
class Network {
 public:
  explicit Network(Server& peer);
  ~Network();
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;
};

// Whether the calling thread has made a connection.
[[nodiscard]] bool on_connecting_thread();

}  // namespace vlk::agent::fuzz
