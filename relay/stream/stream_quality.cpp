// Passes events and measurements on.
#include "relay/stream/stream_quality.h"

#include <span>
#include <utility>

#include "wire/messages.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kPictureStart = kEnvelopeHeaderSize + 8;  // after the stamp

}  // namespace

void StreamQuality::choose(const Choice& choice, Clock::time_point now) {
  choice_ = choice;
  if (ladder_) (void)ladder_->choose(choice.preset, choice.by_hand, now);
}

std::optional<StreamRates> StreamQuality::start(Clock::time_point now,
                                                std::optional<std::chrono::milliseconds> round_trip) {
  if (!choice_) return std::nullopt;
  if (ladder_) {
    ladder_->started(now);
  } else {
    ladder_.emplace(now, Ladder::Beginning{choice_->preset, choice_->by_hand, last_, round_trip});
  }
  still_.started(now, ladder_->asked().fps);
  return ladder_->asked();
}

void StreamQuality::end() {
  if (ladder_ && choice_->preset != Preset::ByHand) last_ = ladder_->asked();
  ladder_.reset();
  choice_.reset();
  still_ = {};
  pace_.begin();
}

void StreamQuality::settings(Clock::time_point now) {
  if (!ladder_) return;
  ladder_->started(now);
  still_.started(now, ladder_->asked().fps);
  pace_.begin();
}

void StreamQuality::picture(Clock::time_point now, std::uint64_t stamp_us, const Bytes& frame) {
  if (!ladder_ || frame.size() < kPictureStart) return;
  still_.picture(now, stamp_us);
  pace_.picture(now, std::span(frame).subspan(kPictureStart));
}

void StreamQuality::input(Clock::time_point now, bool acts) {
  if (!ladder_) return;
  input_ = true;
  if (acts) still_.input(now);
}

std::optional<StreamRates> StreamQuality::report(LadderReport report) {
  const bool input = std::exchange(input_, false);
  if (!ladder_) return std::nullopt;
  report.input = input;
  report.full_pace = pace_.is(report.now, ladder_->asked().fps);
  const auto rates = ladder_->report(report);
  if (rates) still_.started(report.now, rates->fps);
  return rates;
}

StillPicture::Action StreamQuality::watch(Clock::time_point now, bool line_late) {
  if (!ladder_) return StillPicture::Action::None;
  const StillPicture::Action action = still_.tick(now, line_late || ladder_->late());
  if (action == StillPicture::Action::StartAgain) {
    ladder_->started(now);
    still_.started(now, ladder_->asked().fps);
  }
  return action;
}

std::optional<Preset> StreamQuality::preset() const {
  return choice_ ? std::optional(choice_->preset) : std::nullopt;
}

std::optional<StreamRates> StreamQuality::asked() const {
  return ladder_ ? std::optional(ladder_->asked()) : std::nullopt;
}

}  // namespace vlk::relay
