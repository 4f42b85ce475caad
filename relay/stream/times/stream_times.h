// When the pictures of one machine's stream arrived at the relay, and how long they waited before.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "relay/base/clock.h"
#include "relay/stream/age_meter.h"

namespace vlk::relay {

struct ArrivedPicture {
  std::uint64_t stamp_us = 0;  // the agent's time of capture in microseconds since the stream's start
  Clock::time_point at{};
  // By how much the time between capture and arrival exceeds the least of the last ten minutes of the stream:
  // the queue in the machine, and the transmission of a large picture.
  std::chrono::microseconds waited{};
  std::size_t bytes = 0;
};

// Used on one thread; times must not decrease.
class StreamTimes {
 public:
  // A message with the stream's settings arrived. The stamps may count from another zero from now on.
  void begin();
  void arrived(Clock::time_point now, std::uint64_t stamp_us, std::size_t bytes);
  // A part of a file arrived on the same connection.
  void file_arrived(Clock::time_point now) { last_file_ = now; }
  // So many bytes of pictures arrived, or of other messages passed the machine's line in either direction.
  void add_bytes(std::uint64_t pictures, std::uint64_t others) {
    bytes_.pictures += pictures;
    bytes_.others += others;
  }
  struct Passed {
    std::uint64_t pictures = 0;
    std::uint64_t others = 0;
  };
  // What has passed since the last call.
  [[nodiscard]] Passed take_bytes() { return std::exchange(bytes_, {}); }

  // The picture with this stamp, or null if it is not one of the last kRemembered of the stream.
  [[nodiscard]] const ArrivedPicture* find(std::uint64_t stamp_us) const;
  // Counts the streams, so that what was measured with another one can be dropped.
  [[nodiscard]] std::uint32_t stream() const { return stream_; }
  // The mean of ArrivedPicture::waited of the pictures that arrived in the last second, or nothing if none
  // did.
  [[nodiscard]] std::optional<std::chrono::microseconds> waited(Clock::time_point now) const;
  // A part of a file has arrived in the last three seconds.
  [[nodiscard]] bool sends_file(Clock::time_point now) const;

  // Ten seconds at the highest rate.
  static constexpr std::size_t kRemembered = 600;

 private:
  std::uint32_t stream_ = 0;
  std::deque<ArrivedPicture> pictures_;
  RecentLeast least_{std::chrono::minutes(10)};
  std::optional<Clock::time_point> last_file_;
  Passed bytes_;
};

}  // namespace vlk::relay
