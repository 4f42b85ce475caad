// Gives a ladder reports, one a second, of a line with a round trip of 50 ms.
#pragma once

#include <gtest/gtest.h>

#include "relay/stream/ladder.h"

namespace vlk::relay {

using namespace std::chrono_literals;

class LadderTest : public testing::Test {
 protected:
  // A report in time of a busy screen: the stream uses its bits, and a key frame a second takes 20 ms.
  LadderReport in_time() {
    const auto second = static_cast<std::uint64_t>(ladder_.asked().bitrate / 8);
    const auto fps = static_cast<std::uint32_t>(ladder_.asked().fps);
    const AgeMeter::Summary pictures{fps, second, second / 4, second / 100, 5ms, 20ms};
    return {.now = now_ += 1s,
            .echo = 50ms,
            .bytes = second,
            .viewers = {{.steers = true, .pictures = pictures}}};
  }
  // The line carries so many bits a second, and its queue makes everything late.
  LadderReport late(std::uint64_t carried) {
    LadderReport report = in_time();
    report.echo = 500ms;
    report.bytes = carried / 8;
    report.viewers[0].pictures.bytes = carried / 8;
    report.viewers[0].pictures.median = report.viewers[0].pictures.worst = 450ms;
    return report;
  }
  // A report of a screen that does not change.
  LadderReport still() {
    LadderReport report = in_time();
    report.bytes = report.viewers[0].pictures.bytes = 3000;
    report.viewers[0].pictures.shown = 1;
    return report;
  }
  // Gives reports in time until a step. Returns the seconds that passed, at most `most`.
  int seconds_to_step(int most) {
    for (int i = 1; i <= most; ++i)
      if (ladder_.report(in_time())) return i;
    return most;
  }
  void begin(std::int32_t bitrate, Preset preset = Preset::Automatic) {
    ladder_ = Ladder(now_, {.preset = preset, .last = StreamRates{60, bitrate}, .round_trip = 50ms});
  }
  // Two late reports, the second of which may lower the rates.
  std::optional<StreamRates> lower(std::uint64_t carried) {
    EXPECT_FALSE(ladder_.report(late(carried)));
    return ladder_.report(late(carried));
  }

  Clock::time_point now_{};
  Ladder ladder_{now_, {.round_trip = 50ms}};
};

}  // namespace vlk::relay
