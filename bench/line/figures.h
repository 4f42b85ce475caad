// What a run over a slow line measures.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// Collects the events of one run. The functions are called on the threads of the machine and of the viewer.
class Figures {
 public:
  void picture_made();
  void picture_shown(Clock::time_point made);
  // A key press that is sent. Returns its number, from 0 to kKeyNumbers - 1.
  std::size_t key_pressed(Clock::time_point due);
  void key_arrived(std::size_t number);
  void downloaded(std::size_t bytes);
  // The keys that have not arrived are lost, and so is an unfinished download.
  void session_ended(const std::string& reason);

  // Starts the measurement at the first picture. Returns false if none is shown within the time.
  [[nodiscard]] bool start(std::chrono::seconds patience);
  // One row of the table, for the time since start().
  [[nodiscard]] std::string row() const;
  static std::string header();

  static constexpr std::size_t kKeyNumbers = 64;

 private:
  struct Key {
    Clock::time_point due;
    std::size_t number = 0;
  };
  struct Shown {
    Clock::time_point at;
    Clock::time_point made;
  };
  [[nodiscard]] std::vector<double> ages(Clock::time_point end) const;

  mutable std::mutex lock_;
  Clock::time_point begin_;
  std::vector<Shown> shown_;
  std::deque<Key> keys_;           // on their way
  std::vector<double> key_times_;  // ms
  std::size_t made_ = 0, next_key_ = 0, keys_lost_ = 0, bytes_ = 0;
  std::map<std::string, int> ends_;
};

}  // namespace vantelink_bench
