// Compares the age of each picture with the least of the last minute.
#include "relay/stream/age_meter.h"

#include <algorithm>
#include <utility>

namespace vlk::relay {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;

microseconds RecentLeast::add(Clock::time_point now, microseconds value) {
  while (!values_.empty() && now - values_.front().at > remembered_)
    values_.pop_front();
  while (!values_.empty() && values_.back().value >= value)
    values_.pop_back();
  if (values_.empty() || now - values_.back().at >= std::chrono::seconds(1)) values_.push_back({now, value});
  return values_.front().value;
}

microseconds since_stamp(Clock::time_point now, std::uint64_t stamp_us) {
  const microseconds stamp(static_cast<std::int64_t>(stamp_us & ((std::uint64_t{1} << 50) - 1)));
  return duration_cast<microseconds>(now.time_since_epoch()) - stamp;
}

void AgeMeter::shown(Clock::time_point now, std::uint64_t stamp_us, std::size_t bytes) {
  if (ages_.size() >= kMostAges) return;
  const microseconds raw = since_stamp(now, stamp_us);
  ages_.push_back(raw - least_.add(now, raw));
  summary_.bytes += bytes;
  summary_.largest = std::max<std::uint64_t>(summary_.largest, bytes);
  summary_.smallest = summary_.shown == 0 ? bytes : std::min<std::uint64_t>(summary_.smallest, bytes);
  ++summary_.shown;
}

void AgeMeter::restart() {
  least_.clear();
  ages_.clear();
  summary_ = {};
}

AgeMeter::Summary AgeMeter::take() {
  Summary summary = std::exchange(summary_, {});
  if (!ages_.empty()) {
    const auto middle = ages_.begin() + static_cast<std::ptrdiff_t>(ages_.size() / 2);
    std::ranges::nth_element(ages_, middle);
    summary.median = duration_cast<milliseconds>(*middle);
    summary.worst = duration_cast<milliseconds>(*std::ranges::max_element(ages_));
  }
  ages_.clear();
  return summary;
}

}  // namespace vlk::relay
