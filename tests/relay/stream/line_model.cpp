// Simulates each picture from its capture to the viewer's confirmation, in the order of time.
#include "relay/stream/line_model.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <queue>
#include <random>
#include <utility>

#include "relay/net/queue/picture_gate.h"
#include "relay/stream/age_meter.h"
#include "relay/stream/ladder.h"

namespace vlk::relay {
namespace {

constexpr double kEncoding = 0.005;
constexpr double kDecoding = 0.005;
constexpr double kOpening = 0.15;  // from StreamStart to the first picture
constexpr double kPacket = 1200;

double value_at(const std::vector<LineChange>& changes, double at) {
  double value = changes.front().bits;
  for (const LineChange& change : changes)
    if (change.at <= at) value = change.bits;
  return value;
}

Clock::time_point time_of(double seconds) {
  return Clock::time_point() + std::chrono::microseconds(std::llround(seconds * 1e6));
}

// One direction of a line. Bytes are sent one after the other; after a loss, what follows waits for the
// repetition.
class Line {
 public:
  Line(const LineSettings& settings, std::mt19937_64& random) : settings_(settings), random_(random) {}

  struct Passage {
    double left;     // the last byte has left the queue
    double arrived;  // the whole message has arrived
  };
  Passage pass(double at, double bytes) {
    free_ = finish(std::max(at, free_), bytes * 8);
    const bool stalls = settings_.loss > 0 && is_lost(bytes);
    const double stall = stalls ? 1.25 * settings_.round_trip : 0;
    arrived_ = std::max(arrived_, free_ + settings_.round_trip / 2 + stall);
    return {free_, arrived_};
  }
  // The time from which at most so many bytes wait in the queue.
  [[nodiscard]] double queue_below(double bytes) const {
    return free_ - bytes * 8 / std::max(1.0, value_at(settings_.speed, free_));
  }

 private:
  [[nodiscard]] bool is_lost(double bytes) {
    const double lost = 1 - std::pow(1 - settings_.loss, std::ceil(bytes / kPacket));
    return std::uniform_real_distribution(0.0, 1.0)(random_) < lost;
  }
  [[nodiscard]] double finish(double from, double bits) const {
    for (;;) {
      double end = 1e12;
      for (const LineChange& change : settings_.speed)
        if (change.at > from) end = std::min(end, change.at);
      const double speed = value_at(settings_.speed, from);
      if (speed > 0 && from + bits / speed <= end) return from + bits / speed;
      bits -= speed * (end - from);
      from = end;
    }
  }

  const LineSettings& settings_;
  std::mt19937_64& random_;
  double free_ = 0;
  double arrived_ = 0;
};

struct Picture {
  double captured = 0;
  double bytes = 0;
  bool key = false;
  int stream = 0;
  double queued = 0;  // at the relay
};

enum class Kind { Start, Capture, Beat, Echo, Echoed, Arrival, Sent, Confirmation, KeyRequest, Report };

struct Event {
  double at;
  std::uint64_t order;
  Kind kind;
  Picture picture{};
  bool operator<(const Event& other) const { return at != other.at ? at > other.at : order > other.order; }
};

class Model {
 public:
  explicit Model(const ModelSettings& settings)
      : settings_(settings),
        random_(settings.seed),
        machine_(settings_.machine, random_),
        viewer_(settings_.viewer, random_),
        ladder_(time_of(0),
                {.preset = settings.preset,
                 .round_trip = std::chrono::milliseconds(std::llround(1000 * settings.machine.round_trip))}) {
  }

  ModelResult run() {
    add(settings_.machine.round_trip / 2, Kind::Start);
    add(0.5, Kind::Beat);
    add(1, Kind::Report);
    while (events_.top().at < settings_.seconds) {
      const Event event = events_.top();
      events_.pop();
      now_ = event.at;
      handle(event.kind, event.picture);
    }
    result_.last = ladder_.asked();
    return std::move(result_);
  }

 private:
  void add(double at, Kind kind, const Picture& picture = {}) { events_.push({at, order_++, kind, picture}); }

  void handle(Kind kind, const Picture& picture) {
    switch (kind) {
      case Kind::Start:
        return start();
      case Kind::Capture:
        return capture(picture.stream);
      case Kind::Beat:
        return beat();
      case Kind::Echo:
        return echo();
      case Kind::Echoed:
        return echoed();
      case Kind::Arrival:
        return arrive(picture);
      case Kind::Sent:
        return send_next();
      case Kind::Confirmation:
        return confirm(picture);
      case Kind::KeyRequest:
        key_wanted_ = true;
        return;
      case Kind::Report:
        return report();
    }
  }

  // The new stream begins when the old one's write has ended.
  void start() {
    rates_ = ladder_.asked();
    ++stream_;
    key_wanted_ = true;
    add(std::max(now_, written_) + kOpening, Kind::Capture, {.stream = stream_});
  }

  void capture(int stream) {
    if (stream != stream_) return;
    const double interval = std::floor(1000.0 / rates_.fps) / 1000;
    const double busy = value_at(settings_.busy, now_);
    const bool still = busy < 0.02 && !key_wanted_ && now_ - captured_ < 1;
    if (still) return add(now_ + interval, Kind::Capture, {.stream = stream});
    captured_ = now_;
    const Picture picture = encode(interval, busy);
    const double encoded = now_ + kEncoding;
    add(machine_.pass(encoded, picture.bytes).arrived, Kind::Arrival, picture);
    written_ = std::max(encoded, machine_.queue_below(settings_.send_buffer));
    add(std::max(now_ + interval, written_), Kind::Capture, {.stream = stream});
  }

  Picture encode(double interval, double busy) {
    Picture picture{.captured = now_, .key = key_wanted_ || now_ - key_at_ >= 2, .stream = stream_};
    const double second = rates_.bitrate / 8.0;
    const double key = std::max(settings_.key_seconds * second, settings_.least_key_bytes);
    if (picture.key) {
      key_at_ = now_;
      key_wanted_ = false;
      picture.bytes = key;
      return picture;
    }
    const double rest = std::max(0.1 * second, second - key / 2) * interval * busy;
    picture.bytes = std::max(100.0, rest * std::uniform_real_distribution(0.6, 1.4)(random_));
    return picture;
  }

  void beat() {
    beats_.push_back(now_);
    add(now_ + settings_.machine.round_trip / 2, Kind::Echo);
    add(now_ + 1, Kind::Beat);
  }

  // The echo waits for the write under way, and then in the queue.
  void echo() {
    if (written_ > now_) return add(written_, Kind::Echo);
    add(machine_.pass(now_, 60).arrived, Kind::Echoed);
  }

  void echoed() {
    echo_ = now_ - beats_.front();
    beats_.pop_front();
  }

  // The relay queues the picture by the rules of its outbox.
  void arrive(Picture picture) {
    bytes_ += picture.bytes;
    const double waited = queue_.empty() ? 0 : now_ - queue_.front().queued;
    const auto kind = picture.key ? PictureKind::Key : PictureKind::Delta;
    const auto ruling = gate_.decide(kind, 0, time_of(waited).time_since_epoch());
    if (ruling != PictureGate::Ruling::Add) {
      dropped_ += static_cast<std::uint32_t>(queue_.size());
      queue_.clear();
    }
    if (ruling == PictureGate::Ruling::Drop) {
      ++dropped_;
      if (now_ - key_asked_ < 1) return;
      key_asked_ = now_;
      return add(now_ + settings_.machine.round_trip / 2, Kind::KeyRequest);
    }
    picture.queued = now_;
    queue_.push_back(picture);
    if (!sending_) send_next();
  }

  void send_next() {
    sending_ = !queue_.empty();
    if (!sending_) return;
    const auto passage = viewer_.pass(now_, queue_.front().bytes);
    add(passage.left, Kind::Sent);
    add(passage.arrived + kDecoding + settings_.viewer.round_trip / 2, Kind::Confirmation, queue_.front());
    queue_.pop_front();
  }

  void confirm(const Picture& picture) {
    const double shown = now_ - settings_.viewer.round_trip / 2;
    const double least =
        kEncoding + kDecoding + (settings_.machine.round_trip + settings_.viewer.round_trip) / 2;
    result_.shown.push_back({shown, shown - picture.captured - least});
    if (picture.stream < metered_) return;
    if (picture.stream > metered_) {
      meter_.restart();
      metered_ = picture.stream;
      zero_ = picture.captured;
    }
    const auto stamp = static_cast<std::uint64_t>((picture.captured - zero_) * 1e6);
    meter_.shown(time_of(now_), stamp, static_cast<std::size_t>(picture.bytes));
  }

  void report() {
    add(now_ + 1, Kind::Report);
    LadderReport report{.now = time_of(now_)};
    const double waited = beats_.empty() ? 0 : now_ - beats_.front();
    report.echo = std::chrono::milliseconds(std::llround(1000 * std::max(echo_, waited)));
    report.bytes = static_cast<std::uint64_t>(std::exchange(bytes_, 0));
    report.viewers = {{.steers = true, .pictures = meter_.take(), .dropped = std::exchange(dropped_, 0)}};
    const StreamRates before = ladder_.asked();
    const auto rates = ladder_.report(report);
    if (!rates) return;
    result_.steps.push_back({now_, *rates, rates->bitrate > before.bitrate});
    add(now_ + settings_.machine.round_trip / 2, Kind::Start);
  }

  const ModelSettings settings_;
  std::mt19937_64 random_;
  Line machine_;
  Line viewer_;
  Ladder ladder_;
  ModelResult result_;
  std::priority_queue<Event> events_;
  std::uint64_t order_ = 0;
  double now_ = 0;

  // The machine.
  StreamRates rates_;
  int stream_ = 0;
  bool key_wanted_ = false;
  double key_at_ = -2;
  double captured_ = -1;
  double written_ = 0;  // when the worker's last write ends

  // The relay.
  std::deque<double> beats_;
  double echo_ = 0;
  double bytes_ = 0;
  std::uint32_t dropped_ = 0;
  PictureGate gate_;
  std::deque<Picture> queue_;
  bool sending_ = false;
  double key_asked_ = -1;
  AgeMeter meter_;
  int metered_ = 0;
  double zero_ = 0;
};

}  // namespace

ModelResult run_model(const ModelSettings& settings) {
  return Model(settings).run();
}

}  // namespace vlk::relay
