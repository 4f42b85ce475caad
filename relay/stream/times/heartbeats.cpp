// Matches echoes with heartbeats.
#include "relay/stream/times/heartbeats.h"

#include <algorithm>

namespace vlk::relay {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

bool Heartbeats::due(Clock::time_point now, Clock::duration interval,
                     std::optional<Clock::duration> often) const {
  if (!last_sent_ || now - *last_sent_ >= interval) return true;
  if (!often || !open_.empty()) return false;
  const Clock::duration late = round_trip_.value_or(milliseconds(0)) - line_;
  return now - *last_sent_ >= std::max(*often, 8 * late);
}

std::uint32_t Heartbeats::send(Clock::time_point now, Clock::time_point follows) {
  if (open_.size() == kMostOpen) open_.pop_front();
  open_.push_back({++last_number_, now, follows});
  last_sent_ = now;
  return last_number_;
}

std::optional<Heartbeats::Echo> Heartbeats::returned(std::uint32_t number, Clock::time_point now) {
  const auto beat = std::ranges::find(open_, number, &Beat::number);
  if (beat == open_.end()) return std::nullopt;
  const Echo echo{beat->follows, duration_cast<milliseconds>(now - beat->sent)};
  open_.erase(open_.begin(), beat + 1);
  round_trip_ = echo.round_trip;
  line_ = duration_cast<milliseconds>(least_.add(now, echo.round_trip));
  return echo;
}

milliseconds Heartbeats::echo(Clock::time_point now) const {
  const milliseconds last = round_trip_.value_or(milliseconds(0));
  return open_.empty() ? last : std::max(last, duration_cast<milliseconds>(now - open_.front().sent));
}

milliseconds Heartbeats::queue(Clock::time_point now) const {
  return round_trip_ ? std::max(milliseconds(0), echo(now) - line_) : milliseconds(0);
}

}  // namespace vlk::relay
