// The heartbeats to one agent, and what their echoes say about its line.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

#include "relay/base/clock.h"
#include "relay/stream/age_meter.h"

namespace vlk::relay {

// The agent sends each heartbeat back after all that it has sent before: pictures, files and clipboards stand
// in one queue. So an echo is late by the time that this queue takes.
//
// The agent's connection thread waits in that queue with the echo, and carries out no input meanwhile. So the
// next heartbeat follows an echo that was late by L not before 8 L have passed.
//
// Has no clock; times must not decrease. Used on one thread.
class Heartbeats {
 public:
  struct Echo {
    Clock::time_point follows{};  // the agent has read all that was sent to it before this time
    std::chrono::milliseconds round_trip{};
  };

  // Whether the next heartbeat is to be sent. `interval` is the usual time between two, which is also the
  // longest. During a session, one is due after `often`, unless an echo is missing or late.
  [[nodiscard]] bool due(Clock::time_point now, Clock::duration interval,
                         std::optional<Clock::duration> often) const;
  // A heartbeat is sent, after all messages that were sent to the agent before `follows`. Returns its number,
  // which is one more than that of the heartbeat before.
  [[nodiscard]] std::uint32_t send(Clock::time_point now, Clock::time_point follows);
  [[nodiscard]] std::uint32_t send(Clock::time_point now) { return send(now, now); }
  // The agent returned this number. Returns nothing if no heartbeat with the number waits for its echo.
  [[nodiscard]] std::optional<Echo> returned(std::uint32_t number, Clock::time_point now);

  // The round trip of the last echo; nothing before the first.
  [[nodiscard]] std::optional<std::chrono::milliseconds> round_trip() const { return round_trip_; }
  // The same or, if longer, the time for which the oldest heartbeat has waited for its echo.
  [[nodiscard]] std::chrono::milliseconds echo(Clock::time_point now) const;
  // The least round trip of the last ten minutes, which is that of the line without a queue; zero before the
  // first.
  [[nodiscard]] std::chrono::milliseconds line() const { return line_; }
  // The time that the machine's queue takes: by how much the echo is longer than the line's round trip.
  [[nodiscard]] std::chrono::milliseconds queue(Clock::time_point now) const;

 private:
  struct Beat {
    std::uint32_t number = 0;
    Clock::time_point sent{};
    Clock::time_point follows{};
  };
  // A silent agent is disconnected before it owes so many.
  static constexpr std::size_t kMostOpen = 64;

  std::deque<Beat> open_;
  std::uint32_t last_number_ = 0;
  std::optional<Clock::time_point> last_sent_;
  std::optional<std::chrono::milliseconds> round_trip_;
  std::chrono::milliseconds line_{};
  RecentLeast least_{std::chrono::minutes(10)};
};

}  // namespace vlk::relay
