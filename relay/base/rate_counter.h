// Counts events for each key within a sliding window: wrong passwords by name and address, enrolments and
// refused log-ins of agents by address.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_map>

#include "relay/base/clock.h"

namespace vlk::relay {

// Remembers at most `max_keys` keys; a further key replaces the one whose last event is oldest.
class RateCounter {
 public:
  RateCounter(std::size_t limit, std::chrono::seconds window, std::size_t max_keys)
      : limit_(limit), window_(window), max_keys_(max_keys) {}

  // True when the window holds `limit` events of the key.
  [[nodiscard]] bool exhausted(const std::string& key, Clock::time_point now);
  void add(const std::string& key, Clock::time_point now);
  void take_back(const std::string& key);  // removes the newest event
  void forget(const std::string& key) { events_.erase(key); }
  [[nodiscard]] std::size_t keys() const { return events_.size(); }

 private:
  void evict_key(Clock::time_point now);

  std::size_t limit_;
  std::chrono::seconds window_;
  std::size_t max_keys_;
  std::unordered_map<std::string, std::deque<Clock::time_point>> events_;  // newest last, never an empty list
};

}  // namespace vlk::relay
