// Remembers the last pictures of a stream.
#include "relay/stream/times/stream_times.h"

#include <algorithm>

namespace vlk::relay {

using std::chrono::microseconds;
using std::chrono::seconds;

void StreamTimes::begin() {
  ++stream_;
  pictures_.clear();
  least_.clear();
}

void StreamTimes::arrived(Clock::time_point now, std::uint64_t stamp_us, std::size_t bytes) {
  const microseconds raw = since_stamp(now, stamp_us);
  if (pictures_.size() == kRemembered) pictures_.pop_front();
  pictures_.push_back({stamp_us, now, raw - least_.add(now, raw), bytes});
}

const ArrivedPicture* StreamTimes::find(std::uint64_t stamp_us) const {
  // The wanted picture is usually one of the last.
  const auto found = std::find_if(pictures_.rbegin(), pictures_.rend(), [&](const ArrivedPicture& picture) {
    return picture.stamp_us == stamp_us;
  });
  return found == pictures_.rend() ? nullptr : &*found;
}

std::optional<microseconds> StreamTimes::waited(Clock::time_point now) const {
  microseconds sum{};
  std::int64_t count = 0;
  for (const ArrivedPicture& picture : pictures_) {
    if (now - picture.at > seconds(1)) continue;
    sum += picture.waited;
    ++count;
  }
  return count == 0 ? std::nullopt : std::optional(sum / count);
}

bool StreamTimes::sends_file(Clock::time_point now) const {
  return last_file_ && now - *last_file_ <= seconds(3);
}

}  // namespace vlk::relay
