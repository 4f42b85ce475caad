// A representative's session with a machine, whose pictures are timed on their way through the relay.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "relay/browser.h"
#include "relay/net/strangers/raw_peer.h"

namespace vantelink_bench {

// The agent sends 30 pictures a second of 20 KB; the browser reads them. Both ends run on threads.
class HonestSession {
 public:
  explicit HonestSession(unsigned short port);
  ~HonestSession();
  HonestSession(const HonestSession&) = delete;
  HonestSession& operator=(const HonestSession&) = delete;

  // Forgets the times measured so far.
  void restart();
  // The time that 99 of 100 pictures took at most, in milliseconds. Pictures that are under way count with
  // the time until now.
  [[nodiscard]] double p99();

 private:
  void send();
  void receive();

  using Clock = std::chrono::steady_clock;
  vlk::relay::RawPeer agent_;
  vlk::relay::Browser browser_;
  std::uint32_t session_ = 0;
  std::atomic<bool> stopping_{false};
  std::mutex lock_;
  std::vector<Clock::time_point> sent_;
  std::vector<double> times_;  // ms
  std::size_t received_ = 0;
  std::size_t first_ = 0;  // the first picture after restart()
  std::thread sender_;
  std::thread receiver_;
};

// Logs in as "admin" and opens the console's WebSocket. Returns false if either is refused.
bool open_console(vlk::relay::Browser& browser, unsigned short port);

}  // namespace vantelink_bench
