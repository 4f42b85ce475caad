// The rates of one machine's stream, and the watch over its picture.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/stream/full_pace.h"
#include "relay/stream/ladder.h"
#include "relay/stream/rates.h"
#include "relay/stream/still_picture.h"

namespace vlk::relay {

// Joins the ladder, the watch and what they need to know. While nobody has chosen a preset, it does nothing,
// and a stream has the rates that its StreamStart names. Who uses it sends the messages to the machine.
//
// Has no clock; times must not decrease. Used on one thread.
class StreamQuality {
 public:
  struct Choice {
    Preset preset = Preset::Automatic;
    StreamRates by_hand{};  // for Preset::ByHand
  };

  // A person chooses. The next StreamStart asks for the new rates.
  void choose(const Choice& choice, Clock::time_point now);
  // The machine gets a StreamStart. Returns the rates that it is to ask for, or nothing without a choice.
  [[nodiscard]] std::optional<StreamRates> start(Clock::time_point now,
                                                 std::optional<std::chrono::milliseconds> round_trip);
  // The stream has ended, and its choice with it.
  void end();
  [[nodiscard]] bool runs() const { return ladder_.has_value(); }

  // The settings of a new stream arrived, or a picture (a whole StreamFrame with this stamp), or input was
  // passed on to the machine. Only input that `acts` lets the picture change: a pointer that the machine does
  // not paint moves over a still screen.
  void settings(Clock::time_point now);
  void picture(Clock::time_point now, std::uint64_t stamp_us, const Bytes& frame);
  void input(Clock::time_point now, bool acts);

  // To be called about once a second; fills in what this class knows itself. Returns new rates if the stream
  // is to be started again with them.
  [[nodiscard]] std::optional<StreamRates> report(LadderReport report);
  // To be called several times a second. After StartAgain, the caller starts the stream again with asked().
  [[nodiscard]] StillPicture::Action watch(Clock::time_point now, bool line_late);

  [[nodiscard]] std::optional<Preset> preset() const;
  [[nodiscard]] std::optional<StreamRates> asked() const;
  [[nodiscard]] StillPicture::State state() const { return still_.state(); }

 private:
  std::optional<Choice> choice_;
  std::optional<Ladder> ladder_;     // of the running stream
  std::optional<StreamRates> last_;  // of the last stream that has ended
  StillPicture still_;
  FullPace pace_;
  bool input_ = false;  // since the last report
};

}  // namespace vlk::relay
