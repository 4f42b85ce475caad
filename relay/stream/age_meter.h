// Measures how much later than at best one viewer sees the pictures of a stream.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "relay/base/clock.h"

namespace vlk::relay {

// The least of the values of the last minute, or of another time. Keeps at most about one value for each
// second.
class RecentLeast {
 public:
  explicit RecentLeast(std::chrono::seconds remembered = std::chrono::minutes(1)) : remembered_(remembered) {}

  // Times must not decrease. Returns the least value up to now, the new one included.
  std::chrono::microseconds add(Clock::time_point now, std::chrono::microseconds value);
  void clear() { values_.clear(); }

 private:
  struct Entry {
    Clock::time_point at;
    std::chrono::microseconds value;
  };
  std::chrono::seconds remembered_;
  std::deque<Entry> values_;  // rising from front to back
};

// The time from the capture of a picture to `now`, plus an unknown constant. The stamp comes from a machine
// and can be any number; the difference does not overflow.
[[nodiscard]] std::chrono::microseconds since_stamp(Clock::time_point now, std::uint64_t stamp_us);

// The agent's clock and the relay's have different zeros, so the age of a single picture is unknown. Known is
// by how much it exceeds that of the youngest picture of the last minute: this is the added age, which
// contains every queue and every transmission between the capture and the viewer's confirmation. Used on one
// thread.
class AgeMeter {
 public:
  // The pictures that were confirmed since the summary before.
  struct Summary {
    std::uint32_t shown = 0;
    std::uint64_t bytes = 0;
    std::uint64_t largest = 0;   // bytes of the largest picture
    std::uint64_t smallest = 0;  // bytes of the smallest picture
    std::chrono::milliseconds median{};
    std::chrono::milliseconds worst{};
  };

  // The viewer confirmed at `now` that it shows the picture with this stamp, which is the agent's time of
  // capture in microseconds since the stream's start.
  void shown(Clock::time_point now, std::uint64_t stamp_us, std::size_t bytes);
  // A new stream begins, whose stamps have another zero. Confirmations of the old stream must not be given
  // afterwards.
  void restart();
  [[nodiscard]] Summary take();

 private:
  // More confirmations between two summaries than this are not summarised.
  static constexpr std::size_t kMostAges = 1000;

  RecentLeast least_;
  std::vector<std::chrono::microseconds> ages_;
  Summary summary_;
};

}  // namespace vlk::relay
