// Counts events for each key within a sliding window. The relay counts wrong passwords by name and address,
// and enrolments and refused log-ins of agents by address.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_map>

#include "relay/base/clock.h"

namespace vlk::relay {

// Remembers at most `max_keys` keys; a further key replaces the key whose last event is oldest.
class RateCounter {
 public:
  RateCounter(std::size_t limit, std::chrono::seconds window, std::size_t max_keys)
      : limit_(limit), window_(window), max_keys_(max_keys) {}

  // True if the key has `limit` events within the window that ends at `now`.
  [[nodiscard]] bool exhausted(const std::string& key, Clock::time_point now);
  // The number of the key's events within the window, at most `limit`.
  [[nodiscard]] std::size_t count(const std::string& key, Clock::time_point now);
  void add(const std::string& key, Clock::time_point now);
  void take_back(const std::string& key);  // removes the key's newest event
  void forget(const std::string& key) { events_.erase(key); }
  [[nodiscard]] std::size_t keys() const { return events_.size(); }

 private:
  void evict_key(Clock::time_point now);

  std::size_t limit_;
  std::chrono::seconds window_;
  std::size_t max_keys_;
  // The events of each key, the newest last. A key without events is removed.
  std::unordered_map<std::string, std::deque<Clock::time_point>> events_;
};

}  // namespace vlk::relay
