// Notices a machine that sends unchanged pictures at full pace.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <span>

#include "relay/base/clock.h"

namespace vlk::relay {

// A machine that can duplicate its desktop sends a picture when something has changed, and one a second
// otherwise. A machine that cannot sends its screen at the rate that it was asked for, changed or not. Such
// pictures cost it much and show nothing.
//
// Has no clock; times must not decrease. Used on one thread.
class FullPace {
 public:
  void begin() { pictures_.clear(); }
  // A picture arrived; `payload` is what the message contains after its stamp.
  void picture(Clock::time_point now, std::span<const std::uint8_t> payload);
  // Whether the pictures of the last three seconds came at most of the pace that was asked for, nearly all of
  // them unchanged.
  [[nodiscard]] bool is(Clock::time_point now, int fps) const;

 private:
  struct Picture {
    Clock::time_point at;
    bool unchanged = false;
  };
  std::deque<Picture> pictures_;  // of the last three seconds
  std::size_t last_jpeg_ = 0;     // a hash
};

}  // namespace vlk::relay
