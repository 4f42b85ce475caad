// A slow line made by the system itself, on the loopback device of a network namespace.
#pragma once

#include <string>
#include <thread>

#include "relay/net/line/line_model.h"

namespace vantelink_bench {

// The loopback address at which viewers connect, so that their line differs from the machine's.
inline constexpr char kViewerAddress[] = "127.0.0.2";

// Returns a sentence if this system cannot emulate a slow line: no right to make a network namespace, no
// program tc, or a kernel without the emulator. Empty if it can.
std::string netem_missing();

// Moves this process into a network namespace of its own, with a loopback device like an Ethernet. Called
// before the process has further threads. Throws std::runtime_error.
void enter_network();

// Lets the system hold at most so many sent bytes of each connection in this namespace. Over a real line the
// system adapts this to the line; on the loopback it grows to some megabytes. Throws std::runtime_error.
void limit_send_buffers(std::size_t bytes);

// Slows down the connections to the port at the address. Throws std::runtime_error. Each direction has a
// netem queue of its own.
class Netem {
 public:
  Netem(unsigned short port, const std::string& address, const vlk::relay::LineRules& rules);
  ~Netem();
  Netem(const Netem&) = delete;
  Netem& operator=(const Netem&) = delete;

 private:
  // Loses this share of the packets from now on.
  void lose(const std::string& verb, double share) const;

  const vlk::relay::LineRules rules_;
  std::jthread outage_;
};

}  // namespace vantelink_bench
