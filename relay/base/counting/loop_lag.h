// Measures how late the relay's loop does what is due.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

#include "relay/base/clock.h"
#include "relay/base/counting/duration_counts.h"

namespace vlk::relay {

// Used on one thread; times must not decrease.
class LoopLag {
 public:
  // Something that was due at `due` was done at `now`.
  void add(Clock::time_point due, Clock::time_point now) {
    const Clock::duration lag = std::max(now - due, Clock::duration::zero());
    counts_.add(lag);
    if (now - begun_ >= kWindow) {
      before_ = now - begun_ >= 2 * kWindow ? Clock::duration::zero() : worst_;
      worst_ = Clock::duration::zero();
      begun_ = now;
    }
    worst_ = std::max(worst_, lag);
  }
  [[nodiscard]] const DurationCounts& counts() const { return counts_; }
  // The longest of the last one to two minutes.
  [[nodiscard]] Clock::duration worst() const { return std::max(worst_, before_); }

 private:
  static constexpr std::chrono::minutes kWindow{1};

  DurationCounts counts_;
  Clock::time_point begun_{};
  Clock::duration worst_{};   // of the window that began at begun_
  Clock::duration before_{};  // of the window before
};

}  // namespace vlk::relay
