// The two ends of many connections that carry messages in both directions at fixed rates, and the time that
// each message takes from one end to the other.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "relay/net/strangers/raw_peer.h"

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// What every session carries: a picture from the machine to the viewer, and an input back.
struct Load {
  std::size_t picture_bytes = 8 * 1024;
  double a_second = 1;  // pictures, and as many inputs
};

// Milliseconds on the way.
struct Delays {
  std::vector<double> pictures;
  std::vector<double> inputs;
};

// One end of a session's connection, whose peer is a relay or a program that only copies.
struct End {
  explicit End(unsigned short port, const std::string& from = "127.0.0.1") : peer(port, from) {}
  // Also turns Nagle's algorithm off, as the agent does: otherwise the second of two messages that are sent
  // one after the other waits for a confirmation, which the system holds back for 40 ms. From then on, a read
  // that blocks fails after ten seconds.
  void start_tls();

  vlk::relay::RawPeer peer;
  bool machine = false;
  bool messages = false;      // the bytes are WebSocket messages; otherwise they are only counted
  std::uint32_t session = 0;  // of the messages
  End* other = nullptr;
  std::deque<Clock::time_point> on_way{};  // when the messages to this end were sent that have not arrived
  std::size_t bytes = 0;                   // that have arrived of the next message, if they are only counted
};

// Drives the ends on one thread, until destruction.
class TimedEnds {
 public:
  explicit TimedEnds(Load load);
  ~TimedEnds();
  TimedEnds(const TimedEnds&) = delete;
  TimedEnds& operator=(const TimedEnds&) = delete;

  // Takes over the ends of one session. From now on heartbeats and pings are answered.
  void add(std::unique_ptr<End> machine, std::unique_ptr<End> viewer);
  // Sends in all sessions for this time, their messages spread evenly, and returns the delays of the second
  // and later seconds. Throws std::runtime_error if a connection has ended or messages are missing.
  Delays measure(std::chrono::seconds time);

 private:
  void run();
  void send_due(Clock::time_point now);
  void send(End& from, std::size_t number);
  bool read(End& end);
  void parse(End& end, Clock::time_point now);
  void count(End& end, std::size_t bytes, Clock::time_point now);
  void arrived(End& end, Clock::time_point now);
  [[nodiscard]] std::string message(const End& from, std::size_t number, Clock::time_point now) const;

  const Load load_;
  const int poll_;
  std::vector<std::unique_ptr<End>> machines_, viewers_;
  Delays delays_;
  std::size_t sent_ = 0;  // pictures or inputs, whichever are more
  Clock::time_point begin_{};
  std::atomic<bool> sending_{false};
  std::atomic<bool> stopping_{false};
  std::atomic<bool> lost_{false};
  std::atomic<std::size_t> on_way_{0};
  std::thread thread_;
};

}  // namespace vantelink_bench
