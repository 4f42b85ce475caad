// Compares the times of input with the stamps of the pictures.
#include "relay/stream/still_picture.h"

#include <algorithm>

#include "relay/stream/rates.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kKeyFrameAfter{2};
constexpr seconds kStartAfter{4};
// Input that pauses for longer than this may have changed all that it can.
constexpr milliseconds kInputPause{1500};
// Nothing is done for a person who has just stopped.
constexpr milliseconds kJustNow{500};
constexpr seconds kBetweenKeyFrames{10};
// The agent sends an unchanged screen again after exactly a second.
constexpr std::uint64_t kRefreshUs = 990'000;
// A stream begins with several pictures of an unchanged screen.
constexpr std::uint64_t kBeginningUs = 1'500'000;
constexpr milliseconds kAlive{2500};  // two refreshes and the jitter of the line
constexpr seconds kSilentAfter{5};
constexpr seconds kHelpedWithin{6};
constexpr seconds kAfterHelp{10};
constexpr seconds kFirstWait{60};
constexpr seconds kLongestWait{960};

}  // namespace

void StillPicture::started(Clock::time_point now, int fps) {
  watched_ = fps >= kLeastRates.fps;
  started_ = now;
  last_picture_.reset();
  last_stamp_.reset();
  if (still_since_) still_since_ = now;
}

void StillPicture::input(Clock::time_point now) {
  last_input_ = now;
  if (!still_since_) still_since_ = now;
}

void StillPicture::picture(Clock::time_point now, std::uint64_t stamp_us) {
  const bool soon = last_stamp_ && stamp_us > *last_stamp_ && stamp_us - *last_stamp_ < kRefreshUs;
  if (soon && stamp_us >= kBeginningUs) changed(now);
  last_picture_ = now;
  last_stamp_ = stamp_us;
}

void StillPicture::changed(Clock::time_point now) {
  if (still_since_ && started_again_ && now - *started_again_ < kHelpedWithin) {
    // The duplication was lost, and it can be lost again soon.
    wait_ = kFirstWait;
    no_start_before_ = *started_again_ + kAfterHelp;
  }
  still_since_.reset();
  started_again_.reset();
  state_ = State::Follows;
}

StillPicture::Action StillPicture::tick(Clock::time_point now, bool line_late) {
  if (still_since_ && (line_late || now - last_input_ > kInputPause)) {
    still_since_.reset();
    if (state_ != State::Silent) state_ = State::Follows;
  }
  if (!watched_ || line_late) return Action::None;
  if (now - last_picture_.value_or(started_) >= kSilentAfter) {
    state_ = State::Silent;
    return Action::None;
  }
  if (state_ == State::Silent && last_picture_) state_ = State::Follows;
  return still_since_ && now - last_input_ <= kJustNow ? judge(now) : Action::None;
}

StillPicture::Action StillPicture::judge(Clock::time_point now) {
  const auto still = now - *still_since_;
  if (still >= kStartAfter && now >= no_start_before_ && may_start(now)) {
    no_start_before_ = now + wait_;
    wait_ = std::min(2 * wait_, kLongestWait);
    started_again_ = now;
    state_ = State::StartedAgain;
    return Action::StartAgain;
  }
  if (still < kKeyFrameAfter) return Action::None;
  if (still >= kStartAfter && started_again_) state_ = State::Unchanged;
  if (state_ == State::Follows) state_ = State::Still;
  if (key_frame_requested_ && now - *key_frame_requested_ < kBetweenKeyFrames) return Action::None;
  key_frame_requested_ = now;
  return Action::RequestKeyFrame;
}

bool StillPicture::may_start(Clock::time_point now) const {
  return last_picture_ && now - *last_picture_ < kAlive;
}

}  // namespace vlk::relay
