// Computes when packets leave a slow line's queue and when they arrive.
#include "relay/net/line/line_model.h"

#include <algorithm>

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Time = std::chrono::steady_clock::duration;

constexpr milliseconds kShortestTimeout{200};
constexpr seconds kLongestTimeout{120};
constexpr seconds kConnectTimeout{1};
constexpr std::size_t kUnlimited = 1 << 20;  // bytes that a line without a limit holds

Time doubled(Time timeout) {
  return std::min<Time>(2 * timeout, kLongestTimeout);
}

}  // namespace

LineModel::LineModel(const LineRules& rules, std::uint32_t seed)
    : rules_(rules), timeout_(2 * rules.delay + kShortestTimeout), random_(seed) {}

LineTime LineModel::accepts_at() const {
  return idle_ - on_the_line(rules_.queue);
}

LineModel::Passage LineModel::send(std::size_t bytes, LineTime now) {
  const LineTime due = std::max(now, idle_);
  const LineTime start = after_outage(due, timeout_);
  // Other connections need not wait for this one's retransmission.
  if (start != due) return {start + on_the_line(bytes) + rules_.delay, start};
  idle_ = start + on_the_line(bytes);
  const Time lost = stall(bytes);
  return {idle_ + rules_.delay + lost, now};
}

LineModel::Time LineModel::stall(std::size_t bytes) {
  Time sum{}, next = 2 * rules_.delay;
  for (int losses = 0; std::generate_canonical<double, 32>(random_) < rules_.loss; ++losses) {
    idle_ += on_the_line(bytes);
    sum += next;
    next = losses == 0 ? timeout_ : doubled(next);
  }
  return sum;
}

std::size_t LineModel::capacity() const {
  if (rules_.bits_per_second <= 0) return kUnlimited;
  constexpr int kStalls = 8;
  const double seconds_held =
      std::chrono::duration<double>(kStalls * (rules_.delay + kShortestTimeout)).count();
  return rules_.queue + static_cast<std::size_t>(rules_.bits_per_second / 8 * seconds_held);
}

LineTime LineModel::request_passes(LineTime now) const {
  return after_outage(now, kConnectTimeout);
}

LineModel::Time LineModel::on_the_line(std::size_t bytes) const {
  if (rules_.bits_per_second <= 0) return {};
  const std::chrono::duration<double> time(static_cast<double>(8 * bytes) / rules_.bits_per_second);
  return std::chrono::duration_cast<Time>(time);
}

LineTime LineModel::after_outage(LineTime at, Time timeout) const {
  if (!rules_.outage || at < rules_.outage->begin) return at;
  for (; at < rules_.outage->end; timeout = doubled(timeout))
    at += timeout;
  return at;
}

}  // namespace vlk::relay
