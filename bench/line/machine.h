// A machine with a moving desktop: the agent's client on fakes of the Windows modules.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/agent_client.h"
#include "figures.h"

namespace vantelink_bench {

// Accepts every session. Its pictures have the sizes of an H.264 stream of the requested rates with half a
// key frame a second, and contain the time at which they were made. Only one object at a time can exist.
class Machine {
 public:
  // Connects to "localhost" at the port. `certificate` is the relay's, in a PEM file.
  Machine(unsigned short port, const std::string& certificate, Figures& figures);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

 private:
  std::unique_ptr<vlk::agent::AgentClient> client_;
};

inline constexpr int kPicturesPerSecond = 30;
inline constexpr int kBitrate = 1'500'000;

// The time at which a picture was made that Machine has sent; `payload` is that of its message.
Clock::time_point made_at(const std::vector<std::uint8_t>& payload);

// The payload of a message with a key press of this number, which the fakes' journal shows by its length.
std::string key_press(std::size_t number);

}  // namespace vantelink_bench
