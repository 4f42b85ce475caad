// Many agents that are connected and do nothing: what the relay's memory, processor and restart cost with
// them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <openssl/ssl.h>

#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// One connection of an agent on a socket that does not block: it enrols or logs in, answers heartbeats, and
// connects again half a second after each end, as the agent does.
class FleetAgent {
 public:
  // `number` chooses the address from which the agent connects.
  FleetAgent(std::size_t number, unsigned short port, SSL_CTX* context);
  ~FleetAgent();
  FleetAgent(const FleetAgent&) = delete;
  FleetAgent& operator=(const FleetAgent&) = delete;

  [[nodiscard]] int socket() const { return socket_; }
  [[nodiscard]] bool logged_in() const { return state_ == State::LoggedIn; }
  // What the agent waits for on its socket, as epoll's flags; 0 without a socket.
  [[nodiscard]] std::uint32_t waits_for() const { return waits_for_; }
  // Goes on as far as possible. To be called when the socket is ready, and while the agent has no socket.
  void go_on(Clock::time_point now);

 private:
  enum class State { Away, Connecting, Handshake, Upgrade, Joining, LoggedIn };
  void connect();
  void end(Clock::time_point now);
  // Handles what has arrived. Returns false if the connection has ended.
  bool read();
  bool parse(const unsigned char* bytes, std::size_t count);
  bool handle(const vlk::Envelope& envelope);
  bool wait(int result);
  bool send(const std::string& bytes);
  bool send_message(vlk::Msg type, const std::string& json);

  const std::size_t number_;
  const unsigned short port_;
  SSL_CTX* const context_;
  State state_ = State::Away;
  int socket_ = -1;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, &SSL_free};
  std::uint32_t waits_for_ = 0;
  Clock::time_point due_{};
  std::string answer_;  // to the upgrade, as far as it has arrived
  vlk::WsParser parser_;
  std::string identity_;  // what a log-in sends; empty before the enrolment
};

// Agents on a few threads, until destruction.
class Fleet {
 public:
  Fleet(std::size_t agents, unsigned short port);
  ~Fleet();
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  // Waits until all agents are logged in. Returns the seconds that this took; throws std::runtime_error after
  // two minutes.
  double wait_for_all() const;
  // Waits until fewer than half of the agents are logged in, because the relay has gone.
  void wait_for_loss() const;
  [[nodiscard]] std::size_t logged_in() const { return logged_in_; }

 private:
  void run(const std::vector<std::unique_ptr<FleetAgent>>& agents);

  const std::size_t size_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::atomic<std::size_t> logged_in_{0};
  std::atomic<bool> stopping_{false};
  std::vector<std::thread> threads_;
};

}  // namespace vantelink_bench
