// Watches for a picture that stands still although input is given, and says what may repair it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "relay/base/clock.h"

namespace vlk::relay {

// A machine that loses the duplication of its desktop sends about one picture a second until the stream is
// started again. A viewer whose decoder failed waits for a key frame. Both look like a picture that does not
// follow input.
//
// A picture is taken as a change if the agent captured it less than a second after the one before: a screen
// that does not change is sent again each second, never earlier. Keys that are typed where nothing takes them
// change nothing either. A new stream cannot help then, but costs each viewer a key frame, and resets the
// codec and the pointer. So after a new stream that did not help, the next one waits for a minute, and twice
// as long each time, up to 16 minutes.
//
// A stream is never started again while pictures are missing altogether. The agent ends the old stream before
// it starts a new one, and waits for its encoder to do so, without a time limit. If the encoder hangs, a
// StreamStart (and a StreamStop or SessionEnd) would block the machine's connection for ever; until then its
// user can still be asked to restart the agent, and the representative can restart the machine.
//
// Has no clock; times must not decrease. Used on one thread.
class StillPicture {
 public:
  enum class Action : std::uint8_t { None, RequestKeyFrame, StartAgain };
  // For the status line.
  enum class State : std::uint8_t {
    Follows,       // the picture changes, or nobody gives input
    Still,         // the picture does not change under input
    StartedAgain,  // a new stream was started because of that, and the picture has not changed yet
    Unchanged,     // a new stream did not help; probably there is nothing to change
    Silent,        // the machine sends no pictures
  };

  // StreamStart was sent, for whatever reason, and asked for so many pictures a second.
  void started(Clock::time_point now, int fps);
  // Input was passed on to the machine.
  void input(Clock::time_point now);
  // A picture arrived. `stamp_us` is the agent's time of capture in microseconds since the stream's start.
  void picture(Clock::time_point now, std::uint64_t stamp_us);
  // To be called several times a second. Returns what is to be done now; after StartAgain, the caller sends
  // StreamStart and calls started(). `line_late` says that pictures or heartbeats wait in a queue of the line
  // or that the line is interrupted; nothing is judged then.
  [[nodiscard]] Action tick(Clock::time_point now, bool line_late);

  [[nodiscard]] State state() const { return state_; }
  // False if a StreamStart could block the machine's connection, because no picture shows that the encoder
  // works. tick() returns StartAgain only if this is true.
  [[nodiscard]] bool may_start(Clock::time_point now) const;

 private:
  void changed(Clock::time_point now);
  [[nodiscard]] Action judge(Clock::time_point now);

  bool watched_ = false;  // a stream runs with enough pictures a second
  Clock::time_point started_{};
  std::optional<Clock::time_point> last_picture_;  // of this stream
  std::optional<std::uint64_t> last_stamp_;        // of this stream
  std::optional<Clock::time_point> still_since_;   // the first input without a change since then
  Clock::time_point last_input_{};
  State state_ = State::Follows;
  std::optional<Clock::time_point> key_frame_requested_;
  std::optional<Clock::time_point> started_again_;
  Clock::time_point no_start_before_{};
  std::chrono::seconds wait_{60};
};

}  // namespace vlk::relay
