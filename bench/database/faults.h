// What cluster_bench does to the relays and their database's server, beside killing them.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace vantelink_bench {

// Logs in again and again, and counts the answers: requests that need the database.
class LogIns {
 public:
  LogIns(unsigned short port, std::string credentials)
      : credentials_(std::move(credentials)), thread_([this, port] { run(port); }) {}
  ~LogIns() {
    stopping_ = true;
    thread_.join();
  }
  LogIns(const LogIns&) = delete;
  LogIns& operator=(const LogIns&) = delete;

  std::atomic<std::size_t> good{0}, refused{0};
  std::atomic<double> longest{0};              // seconds until an answer
  [[nodiscard]] std::string sentence() const;  // of the last refusal

 private:
  void run(unsigned short port);

  const std::string credentials_;
  mutable std::mutex lock_;
  std::string sentence_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// Drops all packets between the server and its clients, until destruction.
class Firewall {
 public:
  explicit Firewall(std::string port);
  ~Firewall();
  Firewall(const Firewall&) = delete;
  Firewall& operator=(const Firewall&) = delete;
  [[nodiscard]] bool works() const { return works_; }

 private:
  const std::string port_;
  bool works_ = true;
};

}  // namespace vantelink_bench
