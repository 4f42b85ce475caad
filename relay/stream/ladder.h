// Decides how many pictures and bits a second a machine's stream is asked for, from what is measured about
// once a second. The aim is an added age of the pictures below 150 ms.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "relay/base/clock.h"
#include "relay/stream/age_meter.h"
#include "relay/stream/rates.h"

namespace vlk::relay {

// What is known about one viewer since the report before.
struct ViewerReport {
  bool steers = false;
  AgeMeter::Summary pictures{};
  std::uint32_t dropped = 0;  // pictures that were not sent to this viewer because its line is slow
};

struct LadderReport {
  Clock::time_point now{};
  // The round trip of the last heartbeat that the machine returned or, if longer, the time for which the
  // oldest unreturned one has been on its way. It includes the machine's own queue.
  std::chrono::milliseconds echo{};
  // Bytes of the stream that arrived since the report before, also those of an incomplete picture.
  std::uint64_t bytes = 0;
  // Bytes of files and clipboards that passed the machine's line since then, in both directions.
  std::uint64_t other_bytes = 0;
  bool input = false;  // input was passed on to the machine since then
  // The machine cannot duplicate its desktop, so it sends unchanged pictures at full pace.
  bool full_pace = false;
  std::vector<ViewerReport> viewers{};
};

// The rates of one stream. Each change costs a new stream and a key frame, so the rates move in few steps:
//
// - Down, at most every 3 s, if two reports are late or if every key frame of the last seconds took too long.
//   The rates go at once to what the line has carried meanwhile.
// - Up, at most every 10 s, and only if the stream uses the rates that it has or, up to 5.6 Mbit/s, if its
//   machine duplicates a desktop that hardly changes. The time that a key frame took shows what the line
//   carries at least, so most steps up succeed. After one that failed, its rates are not
//   tried again for a minute, then for two, four, eight and ten.
//
// With JPEG, the bit rate has no effect on the pictures, and only the picture rate does.
//
// Of several viewers one decides: the one who steers, otherwise the median one. A viewer who has seen no
// picture since the report before does not count, because no rate helps a line that carries nothing. The
// others' queues at the relay drop what they cannot carry.
//
// report() never changes the rates while nothing of the stream arrives: the agent waits for its encoder
// before it starts a new stream, so if the encoder hangs, a StreamStart would block the machine's connection
// for ever. After choose(), the caller asks StillPicture::may_start() for this.
//
// Has no clock; times must not decrease. Used on one thread.
class Ladder {
 public:
  struct Beginning {
    Preset preset = Preset::Automatic;
    StreamRates by_hand{};              // for Preset::ByHand
    std::optional<StreamRates> last{};  // what was asked for when this machine's line carried a stream last
    // The round trip to the machine before the stream, from its heartbeats.
    std::optional<std::chrono::milliseconds> round_trip{};
  };
  // The stream starts at `now` with the rates asked().
  Ladder(Clock::time_point now, const Beginning& beginning);

  // What StreamStart is to ask for at present; always within the limits of rates.h.
  [[nodiscard]] StreamRates asked() const { return asked_; }
  // Returns new rates if the stream is to be started again, which the ladder then takes as done.
  [[nodiscard]] std::optional<StreamRates> report(const LadderReport& report);
  // The same for a person's choice, which takes effect at once. `by_hand` is used with Preset::ByHand only.
  [[nodiscard]] std::optional<StreamRates> choose(Preset preset, StreamRates by_hand, Clock::time_point now);
  // The stream was started again with the same rates, for instance with another monitor.
  void started(Clock::time_point now);
  // True if the last report was late: pictures or heartbeats wait in a queue.
  [[nodiscard]] bool late() const { return late_; }

 private:
  // What remains of a report.
  struct Second {
    Clock::time_point at;
    bool late = false;
    double bits = 0;         // a second, of the stream at the relay
    double viewer_bits = 0;  // a second, at the deciding viewer
    double largest = 0;      // bits of the largest picture
    double carried = 0;      // bits a second that the path to the deciding viewer carries at least
  };

  // The largest pictures of the last seconds.
  struct KeyFrames {
    double bits = 0;
    double carried = 0;  // bits a second that the line carries at least; 0 if that is unknown
  };

  [[nodiscard]] Second observe(const LadderReport& report, const ViewerReport* viewer);
  [[nodiscard]] bool judge(Second& second, const LadderReport& report, const ViewerReport* viewer);
  [[nodiscard]] bool held(const LadderReport& report, const ViewerReport* viewer);
  void move(const LadderReport& report);
  [[nodiscard]] std::optional<std::size_t> lower_for_queue(Clock::time_point now) const;
  [[nodiscard]] std::optional<std::size_t> lower_for_key_frames() const;
  [[nodiscard]] std::optional<std::size_t> higher_rung(const LadderReport& report) const;
  // Needs so many reports with large pictures.
  [[nodiscard]] KeyFrames key_frames(std::size_t enough) const;
  void go_down(std::size_t rung, double key_bits, Clock::time_point now);
  void go_up(std::size_t rung, Clock::time_point now);
  [[nodiscard]] std::optional<StreamRates> apply(Clock::time_point now);
  [[nodiscard]] StreamRates rates() const;

  Preset preset_;
  StreamRates by_hand_;
  std::size_t rung_;
  bool idle_ = false;  // the machine sends unchanged pictures, and nobody has typed for a while
  StreamRates asked_;

  Clock::time_point started_;
  Clock::time_point last_report_;
  Clock::time_point last_input_;
  std::optional<Clock::time_point> last_down_;
  std::optional<Clock::time_point> last_up_;

  RecentLeast least_echo_;
  std::chrono::milliseconds added_echo_{};
  std::chrono::milliseconds round_trip_{};  // the least echo of the last minute
  double lateness_ = 0;                     // of the last report, in ms
  double late_reports_ = 0;                 // without a report in time between them
  bool machine_late_ = false;
  bool viewer_late_ = false;
  bool late_ = false;
  bool gone_ = false;  // the last report showed an interrupted line
  Clock::time_point held_until_;
  std::deque<Second> recent_;  // since the start of the stream, at most kRemembered

  // The rung of the last step down. It and higher ones are not tried before blocked_until_, and after a
  // failed step up, higher ones not before it.
  std::size_t blocked_;
  bool failed_ = false;
  Clock::time_point blocked_until_;
  std::chrono::seconds block_{};
  double key_before_ = 0;  // bits of the largest picture before the last step for late key frames
};

}  // namespace vlk::relay
