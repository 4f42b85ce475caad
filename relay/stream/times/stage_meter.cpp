// Brings the times of machine, relay and browser together.
#include "relay/stream/times/stage_meter.h"

#include <algorithm>
#include <utility>

namespace vlk::relay {

using std::chrono::duration_cast;
using std::chrono::microseconds;

void StageMeter::shown(Clock::time_point now, microseconds sent, std::span<const ShownPicture> pictures,
                       const StreamTimes& stream) {
  if (stream_ != stream.stream()) {
    stream_ = stream.stream();
    ages_.restart();
    sum_ = {};
    count_ = 0;
  }
  const microseconds zero = zero_.add(now, duration_cast<microseconds>(now.time_since_epoch()) - sent);
  for (const ShownPicture& picture : pictures) {
    const ArrivedPicture* arrived = stream.find(picture.stamp_us);
    if (!arrived) continue;
    // By the relay's clock, but late by the time that the fastest report needed.
    const Clock::time_point received(sent - picture.since + zero);
    const Clock::time_point seen =
        std::clamp(received + picture.decoder + picture.screen, std::min(last_shown_, now), now);
    last_shown_ = seen;
    ages_.shown(seen, picture.stamp_us, arrived->bytes);
    const auto line = std::max(microseconds(0), duration_cast<microseconds>(received - arrived->at));
    half_line_ = line_.add(now, line) / 2;
    sum_.machine += arrived->waited;
    sum_.to_browser += line;
    sum_.decoder += picture.decoder;
    sum_.screen += picture.screen;
    ++count_;
  }
}

StageMeter::Summary StageMeter::take(microseconds to_relay, microseconds relay) {
  Summary summary{.ages = ages_.take()};
  const Stages sum = std::exchange(sum_, {});
  const std::int64_t count = std::exchange(count_, 0);
  if (count == 0) return summary;
  const microseconds after = std::max(microseconds(0), sum.to_browser / count - half_line_);
  summary.stages = {.machine = sum.machine / count,
                    .to_relay = to_relay,
                    .relay = std::min(relay, after),
                    .to_browser = after - std::min(relay, after),
                    .decoder = sum.decoder / count,
                    .screen = sum.screen / count};
  return summary;
}

}  // namespace vlk::relay
