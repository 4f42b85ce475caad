// Another program that sends the screen of an X display.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vantelink_bench {

// A program of the distribution. {port} in its arguments stands for the port of loopback to listen on.
struct Peer {
  std::string name{};
  std::vector<std::string> command{};
};

// The running program; the destructor ends it.
class PeerProcess {
 public:
  PeerProcess(const std::string& display, const Peer& peer);
  ~PeerProcess();
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  // It listens on this port some time after its start.
  unsigned short port() const { return port_; }
  pid_t id() const { return process_; }

 private:
  unsigned short port_;
  pid_t process_ = -1;
};

}  // namespace vantelink_bench
