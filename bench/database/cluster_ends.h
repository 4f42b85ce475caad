// Machines and viewers that find their relay again by themselves: what each of them sees while relays end and
// their database is lost.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "relay/net/strangers/raw_peer.h"

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// A load balancer at the ends' side: gives connections to the relays in turn, and leaves out those that
// refuse.
class Relays {
 public:
  // `address` is the relay's own, as it is in its tickets.
  void add(const std::string& address, unsigned short port);
  // Connects to the next relay, from the loopback address `from`, and completes TLS. `port` receives the
  // relay's. Throws std::runtime_error if none answers.
  [[nodiscard]] std::unique_ptr<vlk::relay::RawPeer> connect(const std::string& from, unsigned short& port);
  [[nodiscard]] unsigned short port_of(const std::string& address) const;

 private:
  mutable std::mutex lock_;
  std::map<std::string, unsigned short> ports_;
  std::vector<unsigned short> in_turn_;
  std::size_t turn_ = 0;
};

// One end of a session, on a thread of its own until stop().
class RelayedEnd {
 public:
  RelayedEnd(Relays& relays, std::string from) : relays_(relays), from_(std::move(from)) {}
  virtual ~RelayedEnd() = default;
  RelayedEnd(const RelayedEnd&) = delete;
  RelayedEnd& operator=(const RelayedEnd&) = delete;

  void start();
  // Ends the thread; the destructors of the ends call it.
  void stop();
  // The port of the relay at which the end is connected; 0 if there is none.
  [[nodiscard]] unsigned short port() const { return port_; }

 protected:
  // Connects, and returns when the connection has ended. May throw std::runtime_error.
  virtual void live() = 0;
  // The pause before the next connection.
  [[nodiscard]] virtual std::chrono::milliseconds pause() = 0;
  virtual void handle(const vlk::WsFrame& frame) = 0;
  virtual void at_rest() {}
  // Handles what arrives, and calls at_rest() every 20 ms or sooner, until the connection ends.
  void serve(vlk::relay::RawPeer& peer);
  // Lets serve() return.
  void leave() { leaving_ = true; }

  Relays& relays_;
  const std::string from_;
  std::atomic<unsigned short> port_{0};
  vlk::relay::RawPeer* peer_ = nullptr;  // while the end is connected

 private:
  void run();

  bool leaving_ = false;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// An agent whose user accepts each session, and whose picture changes ten times a second.
class RelayedMachine final : public RelayedEnd {
 public:
  using RelayedEnd::RelayedEnd;
  ~RelayedMachine() override { stop(); }
  RelayedMachine(const RelayedMachine&) = delete;
  RelayedMachine& operator=(const RelayedMachine&) = delete;

  // The machine's id; empty before its enrolment.
  [[nodiscard]] std::string id() const;

 private:
  void live() override;
  [[nodiscard]] std::chrono::milliseconds pause() override;
  void handle(const vlk::WsFrame& frame) override;
  void at_rest() override;

  mutable std::mutex lock_;
  std::string id_, secret_;
  std::uint32_t session_ = 0;  // that streams
  std::size_t pictures_ = 0;
  Clock::time_point next_picture_{};
  std::chrono::milliseconds pause_{500};
};

// A page that shows one machine, and does what the console does: it asks for the session until it has it,
// follows its machine to another relay with a ticket, and goes back to the balancer when that relay is gone
// for ten seconds.
class RelayedViewer final : public RelayedEnd {
 public:
  RelayedViewer(Relays& relays, std::string from, std::string cookie, std::string machine)
      : RelayedEnd(relays, std::move(from)), cookie_(std::move(cookie)), machine_(std::move(machine)) {}
  ~RelayedViewer() override { stop(); }
  RelayedViewer(const RelayedViewer&) = delete;
  RelayedViewer& operator=(const RelayedViewer&) = delete;

  struct Seen {
    std::size_t pictures = 0;
    std::size_t sessions = 0;   // that were accepted
    Clock::duration longest{};  // without a picture since forget(), up to now
    Clock::time_point last_picture{};
  };
  [[nodiscard]] Seen seen() const;
  void forget();

 private:
  void live() override;
  [[nodiscard]] std::chrono::milliseconds pause() override { return std::chrono::milliseconds(500); }
  void handle(const vlk::WsFrame& frame) override;
  void at_rest() override;
  void follow();

  mutable std::mutex lock_;
  Seen seen_;
  const std::string cookie_;
  const std::string machine_;
  unsigned short moved_to_ = 0;  // the port of the relay that a ticket has led to
  std::string moved_cookie_;
  Clock::time_point gone_since_{};
  bool follow_ = false;
  Clock::time_point ask_{Clock::time_point::max()};
};

}  // namespace vantelink_bench
