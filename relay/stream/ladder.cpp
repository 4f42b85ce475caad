// Moves the rates of a stream along a table of rungs.
#include "relay/stream/ladder.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vlk::relay {
namespace {

using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Neighbours differ by about a half, so that a step that fails overloads the line only a little. Fewer than
// ten pictures a second look like an interrupted line; at low bit rates, more would be unreadable.
constexpr std::array kRungs{
    StreamRates{10, 64'000},    StreamRates{10, 100'000},    StreamRates{10, 150'000},
    StreamRates{12, 225'000},   StreamRates{15, 340'000},    StreamRates{20, 500'000},
    StreamRates{30, 750'000},   StreamRates{30, 1'100'000},  StreamRates{60, 1'650'000},
    StreamRates{60, 2'500'000}, StreamRates{60, 3'750'000},  StreamRates{60, 5'600'000},
    StreamRates{60, 8'400'000}, StreamRates{60, 12'500'000}, StreamRates{60, 18'000'000},
};
// A line of 0.5 Mbit/s carries this rate, and a fast line has a higher one after 5 s.
constexpr std::int32_t kFirstBitrate = 340'000;
constexpr std::int32_t kIdleFps = 15;
// The highest rate that is asked for while little changes: it is sharp, and lets 60 pictures a second follow
// a key.
constexpr std::int32_t kStillBitrate = 5'600'000;

constexpr milliseconds kAim{150};
// The time that a key frame takes on a free line: above the first, the rates go down; below the second, a
// step up ends. The rest is for jitter.
constexpr milliseconds kLateKeyFrame{130};
constexpr milliseconds kKeyFrameAim{100};
constexpr double kShrunk = 0.85;           // of a key frame's size before the last step down
constexpr double kUsableShare = 0.6;       // of a line, so that queues become empty again
constexpr double kGreatestStepUp = 8;      // times the rate before
constexpr milliseconds kLeastMeasured{5};  // shorter times are mostly those of processors and timers
constexpr milliseconds kShortQueue{50};
constexpr milliseconds kShortLine{100};  // round trip
constexpr double kLateReports = 2;
constexpr std::size_t kRemembered = 20;  // reports

constexpr seconds kAfterStart{2};  // the first key frame and the old stream's queue pass
constexpr seconds kSettled{4};     // a picture that did not wait has shown the least age
constexpr seconds kBetweenDown{3};
constexpr seconds kBetweenUp{10};
constexpr seconds kAfterGap{3};  // what waited during an interruption passes
constexpr seconds kTrial{60};    // a step down so soon after one up makes it a failed one
constexpr seconds kLeastBlock{30};
constexpr seconds kMostBlock{600};
constexpr seconds kIdleAfter{20};
constexpr std::uint64_t kMuchOther = 16 * 1024;

StreamRates limit_of(Preset preset) {
  switch (preset) {
    case Preset::Sharp:
      return {30, kMostRates.bitrate};
    case Preset::Balanced:
      return {60, 5'600'000};
    case Preset::Saving:
      return {15, 1'100'000};
    case Preset::Automatic:
    case Preset::ByHand:
      break;
  }
  return {60, kMostRates.bitrate};
}

// The highest rung of at most so many bits a second, but at least the lowest.
std::size_t rung_below(double bitrate, Preset preset) {
  const double most = std::min<double>(bitrate, limit_of(preset).bitrate);
  std::size_t rung = 0;
  while (rung + 1 < kRungs.size() && kRungs[rung + 1].bitrate <= most)
    ++rung;
  return rung;
}

// The viewer who decides, or null if nobody saw a picture. Of an even number, the better of the two in the
// middle decides.
const ViewerReport* deciding_viewer(const std::vector<ViewerReport>& viewers) {
  std::vector<const ViewerReport*> seeing;
  for (const ViewerReport& viewer : viewers)
    if (viewer.pictures.shown > 0) {
      if (viewer.steers) return &viewer;
      seeing.push_back(&viewer);
    }
  if (seeing.empty()) return nullptr;
  const auto middle = seeing.begin() + static_cast<std::ptrdiff_t>((seeing.size() - 1) / 2);
  std::ranges::nth_element(seeing, middle, {}, [](const ViewerReport* viewer) {
    return std::pair(viewer->dropped > 0, viewer->pictures.median);
  });
  return *middle;
}

}  // namespace

Ladder::Ladder(Clock::time_point now, const Beginning& beginning)
    : preset_(beginning.preset),
      by_hand_(within_limits(beginning.by_hand)),
      rung_(rung_below(beginning.last ? beginning.last->bitrate : kFirstBitrate, preset_)),
      asked_(rates()),
      started_(now),
      last_report_(now),
      last_input_(now),
      held_until_(now),
      blocked_(kRungs.size()),
      blocked_until_(now) {
  if (beginning.round_trip) (void)least_echo_.add(now, *beginning.round_trip);
}

StreamRates Ladder::rates() const {
  if (preset_ == Preset::ByHand) return by_hand_;
  StreamRates rates = kRungs[rung_];
  rates.fps = std::min(rates.fps, limit_of(preset_).fps);
  if (idle_) rates.fps = std::min(rates.fps, kIdleFps);
  return rates;
}

std::optional<StreamRates> Ladder::apply(Clock::time_point now) {
  const StreamRates wanted = rates();
  if (wanted == asked_) return std::nullopt;
  asked_ = wanted;
  started(now);
  return asked_;
}

void Ladder::started(Clock::time_point now) {
  started_ = now;
  late_reports_ = 0;
  recent_.clear();
}

std::optional<StreamRates> Ladder::choose(Preset preset, StreamRates by_hand, Clock::time_point now) {
  preset_ = preset;
  by_hand_ = within_limits(by_hand);
  rung_ = std::min(rung_, rung_below(kMostRates.bitrate, preset));
  return apply(now);
}

std::optional<StreamRates> Ladder::report(const LadderReport& report) {
  const ViewerReport* viewer = deciding_viewer(report.viewers);
  Second second = observe(report, viewer);
  const bool counts = judge(second, report, viewer);
  last_report_ = report.now;
  if (!counts || preset_ == Preset::ByHand) return std::nullopt;
  recent_.push_back(second);
  if (recent_.size() > kRemembered) recent_.pop_front();
  move(report);
  return apply(report.now);
}

void Ladder::move(const LadderReport& report) {
  const Clock::time_point now = report.now;
  const bool settled = now - started_ >= kAfterStart;
  const bool may_go_down = settled && (!last_down_ || now - *last_down_ >= kBetweenDown);
  const bool may_go_up = settled && (!last_up_ || now - *last_up_ >= kBetweenUp);
  if (may_go_down) {
    if (const auto lower = lower_for_queue(now)) return go_down(*lower, 0, now);
    if (const auto lower = lower_for_key_frames()) return go_down(*lower, key_frames(1).bits, now);
  }
  const bool idle = report.full_pace && now - last_input_ >= kIdleAfter;
  if (idle ? !idle_ && may_go_down : idle_ && may_go_up) {
    idle_ = idle;
    if (rates() != asked_) (idle ? last_down_ : last_up_) = now;
    return;
  }
  if (!may_go_up) return;
  if (const auto higher = higher_rung(report)) go_up(*higher, now);
}

// Reads what the report says about the line.
Ladder::Second Ladder::observe(const LadderReport& report, const ViewerReport* viewer) {
  if (report.input) last_input_ = report.now;
  round_trip_ = std::chrono::duration_cast<milliseconds>(least_echo_.add(report.now, report.echo));
  // A heartbeat that was sent before the stream's start shows the queue of the stream before.
  const bool old = report.now - report.echo < started_;
  added_echo_ = old ? milliseconds(0) : report.echo - round_trip_;
  const double passed = std::max(0.2, duration<double>(report.now - last_report_).count());
  Second second{.at = report.now, .bits = 8 * static_cast<double>(report.bytes) / passed};
  if (!viewer) return second;
  const AgeMeter::Summary& pictures = viewer->pictures;
  second.viewer_bits = 8 * static_cast<double>(pictures.bytes) / passed;
  second.largest = 8 * static_cast<double>(pictures.largest);
  // Ages are compared with that of a small picture, whose transmission takes time too. At first, it may have
  // waited in a queue as well.
  const auto running = report.now - started_;
  const double more = 8 * static_cast<double>(pictures.largest - pictures.smallest);
  if (running >= kSettled || (running >= kAfterStart && added_echo_ < kShortQueue))
    second.carried = more / duration<double>(std::max(pictures.worst, kLeastMeasured)).count();
  return second;
}

// Decides whether the report is late. Returns false if the report says nothing about the rates.
bool Ladder::judge(Second& second, const LadderReport& report, const ViewerReport* viewer) {
  machine_late_ = added_echo_ > kAim;
  late_ = machine_late_;
  if (held(report, viewer)) return false;
  viewer_late_ = viewer && (viewer->pictures.median > kAim || viewer->dropped > 0);
  late_ = machine_late_ || viewer_late_;
  const double before = lateness_;
  lateness_ = static_cast<double>(added_echo_.count());
  if (viewer) lateness_ = std::max(lateness_, static_cast<double>(viewer->pictures.median.count()));
  second.late = late_;
  // A queue that becomes shorter needs time, not lower rates.
  const bool falling = lateness_ < 0.8 * before || lateness_ < before - 200;
  // A repeated packet can make a heartbeat late, or a viewer lose pictures, without a queue that stands. A
  // queue makes most pictures late, unless it stood when the stream began.
  const bool ages_known = viewer && report.now - started_ >= kSettled;
  const bool stands = (viewer && viewer->pictures.median > kAim) || (machine_late_ && !ages_known);
  if (!late_) late_reports_ = 0;
  if (late_ && !falling) late_reports_ += stands ? 1 : 0.5;
  return true;
}

// True while the line says nothing about the rates: it is or was interrupted, or a file fills it.
bool Ladder::held(const LadderReport& report, const ViewerReport* viewer) {
  const bool gone = report.bytes == 0 || (!viewer && !report.viewers.empty());
  // After a hold, reports count for a while even if the line is interrupted again and again: an overloaded
  // line looks like this when a key frame takes seconds.
  if (gone_ && !gone && report.now - held_until_ >= kBetweenUp) held_until_ = report.now + kAfterGap;
  gone_ = gone;
  if (report.bytes == 0 || report.now < held_until_) return true;
  return report.other_bytes > kMuchOther && report.other_bytes > report.bytes / 4;
}

Ladder::KeyFrames Ladder::key_frames(std::size_t enough) const {
  KeyFrames keys;
  for (const Second& second : recent_)
    keys.bits = std::max(keys.bits, second.largest);
  std::size_t measured = 0;
  for (const Second& second : recent_) {
    if (second.largest < keys.bits / 2) continue;
    keys.carried = std::max(keys.carried, second.carried);
    if (second.carried > 0) ++measured;
  }
  if (measured < enough) keys.carried = 0;
  return keys;
}

std::optional<std::size_t> Ladder::lower_for_queue(Clock::time_point now) const {
  // On a long line, the repetition of one lost packet makes pictures late for more than a second.
  const double repetition = round_trip_ < kShortLine ? 0 : 2 * duration<double>(round_trip_).count();
  if (rung_ == 0 || late_reports_ < kLateReports + repetition) return std::nullopt;
  // What arrives while a queue stands is what the line carries.
  double machine = 0;
  double viewer = 0;
  for (const Second& second : recent_) {
    if (!second.late || now - second.at > kBetweenDown) continue;
    machine = std::max(machine, second.bits);
    viewer = std::max(viewer, second.viewer_bits);
  }
  double carried = kMostRates.bitrate;
  if (machine_late_) carried = std::min(carried, machine);
  if (viewer_late_) carried = std::min(carried, viewer);
  return std::min(rung_ - 1, rung_below(kUsableShare * carried, preset_));
}

std::optional<std::size_t> Ladder::lower_for_key_frames() const {
  const KeyFrames keys = key_frames(3);
  if (rung_ == 0 || keys.carried == 0) return std::nullopt;
  if (keys.bits / keys.carried < duration<double>(kLateKeyFrame).count()) return std::nullopt;
  // Below some rate, an encoder's key frames of a large screen do not become smaller.
  if (key_before_ > 0 && keys.bits > kShrunk * key_before_) return std::nullopt;
  return std::min(rung_ - 1, rung_below(kUsableShare * keys.carried, preset_));
}

std::optional<std::size_t> Ladder::higher_rung(const LadderReport& report) const {
  const Clock::time_point now = report.now;
  if (last_down_ && now - *last_down_ < kBetweenUp) return std::nullopt;
  if (recent_.back().viewer_bits == 0) return std::nullopt;
  double used = 0;
  for (const Second& second : recent_) {
    if (second.late) return std::nullopt;
    used = std::max(used, second.bits);
  }
  // At full pace, a stream that does not use its bits would not use more, and shows nothing about the line.
  // Of a duplicated desktop that hardly changes, each picture is as poor as the rate allows, although most of
  // the bits remain; its key frames show what the line carries.
  const bool uses = used >= kUsableShare * asked_.bitrate;
  if (!uses && (report.full_pace || asked_.bitrate >= kStillBitrate)) return std::nullopt;
  const KeyFrames keys = key_frames(2);
  if (keys.carried == 0) return std::nullopt;
  // The stream and its key frames grow with the rate, and both must fit.
  const double key_seconds = keys.bits / keys.carried;
  const double most =
      std::min({kUsableShare * keys.carried, kGreatestStepUp * asked_.bitrate,
                asked_.bitrate * duration<double>(kKeyFrameAim).count() / std::max(key_seconds, 0.001)});
  std::size_t rung = rung_below(uses ? most : std::min<double>(most, kStillBitrate), preset_);
  if (now < blocked_until_) rung = std::min(rung, blocked_ - 1);
  if (failed_ && rung_ < blocked_) rung = std::min(rung, blocked_);
  return rung > rung_ ? std::optional(rung) : std::nullopt;
}

void Ladder::go_down(std::size_t rung, double key_bits, Clock::time_point now) {
  failed_ = last_up_ && now - *last_up_ < std::max<seconds>(kTrial, 2 * block_);
  block_ = failed_ ? std::clamp(2 * block_, 2 * kLeastBlock, kMostBlock) : kLeastBlock;
  blocked_ = rung_;
  blocked_until_ = now + block_;
  key_before_ = key_bits;
  rung_ = rung;
  last_down_ = now;
}

void Ladder::go_up(std::size_t rung, Clock::time_point now) {
  key_before_ = 0;
  rung_ = rung;
  last_up_ = now;
}

}  // namespace vlk::relay
