// The way of the pictures to one viewer, divided into stages.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include "relay/base/clock.h"
#include "relay/stream/age_meter.h"
#include "relay/stream/times/stream_times.h"

namespace vlk::relay {

// What a viewer reports about one picture.
struct ShownPicture {
  std::uint64_t stamp_us = 0;
  std::chrono::microseconds since{};    // from its arrival in the browser to the sending of the report
  std::chrono::microseconds decoder{};  // from its arrival to its drawing
  std::chrono::microseconds screen{};   // from its drawing to its display
};

// The mean times of some pictures. Their sum is the time from the capture to the display, but for what is the
// same for every picture and cannot be measured from here: the time for capturing and encoding.
struct Stages {
  std::chrono::microseconds machine{};     // in the machine's queue
  std::chrono::microseconds to_relay{};    // half of the round trip to the machine
  std::chrono::microseconds relay{};       // in the relay's queue to this viewer
  std::chrono::microseconds to_browser{};  // on the line to the browser, including the system's buffers
  std::chrono::microseconds decoder{};
  std::chrono::microseconds screen{};

  [[nodiscard]] std::chrono::microseconds total() const {
    return machine + to_relay + relay + to_browser + decoder + screen;
  }
};

// The browser's clock has another zero than the relay's. The report that came fastest in the last minute
// shows the difference, up to half of the round trip, so a report that is late on its way changes nothing.
//
// Has no clock; times must not decrease. Used on one thread.
class StageMeter {
 public:
  struct Summary {
    AgeMeter::Summary ages{};
    std::optional<Stages> stages{};  // if pictures were shown
  };

  // A report arrived at `now`, which the browser sent at the time `sent` of its own clock. Pictures that the
  // stream does not remember are ignored.
  void shown(Clock::time_point now, std::chrono::microseconds sent, std::span<const ShownPicture> pictures,
             const StreamTimes& stream);
  // Sums up the pictures since the summary before. `to_relay` is half of the round trip to the machine;
  // `relay` the mean time for which they waited in the relay's queue.
  [[nodiscard]] Summary take(std::chrono::microseconds to_relay, std::chrono::microseconds relay);

 private:
  std::uint32_t stream_ = 0;
  AgeMeter ages_;
  RecentLeast zero_;  // of the browser's clock
  RecentLeast line_;  // from the relay to the browser and back
  std::chrono::microseconds half_line_{};
  Clock::time_point last_shown_{};
  Stages sum_;  // to_browser: from the arrival at the relay to that in the browser
  std::int64_t count_ = 0;
};

}  // namespace vlk::relay
