// Counts events for each key within a sliding window.
#include "relay/base/counting/rate_counter.h"

#include <algorithm>

namespace vlk::relay {

bool RateCounter::exhausted(const std::string& key, Clock::time_point now) {
  return count(key, now) >= limit_;
}

std::size_t RateCounter::count(const std::string& key, Clock::time_point now) {
  const auto found = events_.find(key);
  if (found == events_.end()) return 0;
  auto& times = found->second;
  while (!times.empty() && now - times.front() >= window_)
    times.pop_front();
  if (times.empty()) {
    events_.erase(found);
    return 0;
  }
  return times.size();
}

void RateCounter::add(const std::string& key, Clock::time_point now) {
  if (!events_.contains(key)) evict_key(now);
  auto& times = events_[key];
  times.push_back(now);
  if (times.size() > limit_) times.pop_front();
}

void RateCounter::take_back(const std::string& key) {
  const auto found = events_.find(key);
  if (found == events_.end()) return;
  found->second.pop_back();
  if (found->second.empty()) events_.erase(found);
}

void RateCounter::evict_key(Clock::time_point now) {
  if (events_.size() < max_keys_) return;
  std::erase_if(events_, [&](const auto& entry) { return now - entry.second.back() >= window_; });
  if (events_.size() < max_keys_) return;
  events_.erase(std::min_element(events_.begin(), events_.end(), [](const auto& a, const auto& b) {
    return a.second.back() < b.second.back();
  }));
}

}  // namespace vlk::relay
