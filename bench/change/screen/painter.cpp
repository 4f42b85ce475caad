// Plays the scenes in a window.
#include "screen/painter.h"

#include <algorithm>
#include <random>
#include <thread>

#include "screen/content.h"
#include "tests/doubles/scripted_picture.h"

namespace vantelink_bench {
namespace {

using std::chrono::milliseconds;
using vantelink_doubles::kNumberBits;
using vantelink_doubles::kSquare;

constexpr int kPageTop = 48;  // the number is above it
constexpr int kFilmLeft = 320, kFilmTop = 200;

// Something that a scene does again and again. The jitter keeps it from staying in step with a viewer's
// pictures.
struct Beat {
  milliseconds interval{};
  milliseconds jitter{};  // at most this much earlier or later
  bool paints = false;    // paints the scene's own change
  bool counts = false;    // paints a new number
};

std::vector<Beat> beats_of(Scene scene) {
  constexpr Beat kNumber{milliseconds(400), milliseconds(150), false, true};
  switch (scene) {
    case Scene::Typing:
      return {{milliseconds(120), milliseconds(30), true, true}};
    case Scene::Scrolling:
      return {{milliseconds(1000 / 15), milliseconds(12), true, true}};
    case Scene::Film:
      return {{milliseconds(40), milliseconds(4), true, true}};
    case Scene::Busy:
      return {{milliseconds(40), milliseconds(4), true, false}, kNumber};
    case Scene::Still:
      break;
  }
  return {kNumber};
}

// The times at which one beat is due, the same in each run.
class Schedule {
 public:
  Schedule(const Beat& beat, Clock::time_point start) : beat_(beat), start_(start) { advance(); }
  const Beat& beat() const { return beat_; }
  Clock::time_point next() const { return next_; }
  void advance() {
    std::uniform_int_distribution<long> jitter(-1000 * beat_.jitter.count(), 1000 * beat_.jitter.count());
    next_ = start_ + ++count_ * beat_.interval + std::chrono::microseconds(jitter(random_));
  }

 private:
  Beat beat_;
  Clock::time_point start_, next_{};
  int count_ = 0;
  std::mt19937 random_{1};
};

}  // namespace

const char* name_of(Scene scene) {
  constexpr std::array kNames = {"still", "typing", "scrolling", "film", "busy"};
  return kNames.at(static_cast<std::size_t>(scene));
}

Painter::Painter(const std::string& display) : window_(display) {
  window_.store_film(film(), kFilmWidth, kFilmHeight * kFilmPictures);
}

Moment Painter::prepare(Scene scene) {
  painted_ = 0;
  window_.show();
  window_.fill(0xFFFFFF);
  if (scene == Scene::Scrolling || scene == Scene::Typing) {
    const int lines = scene == Scene::Typing ? 4 : (window_.height() - kPageTop) / kLineHeight;
    for (int line = 0; line < lines; ++line) {
      window_.put(text_line(static_cast<std::uint32_t>(line), window_.width()), 0,
                  kPageTop + line * kLineHeight, window_.width());
    }
  } else if (scene != Scene::Still) {
    window_.put_film(0, kFilmHeight, kFilmLeft, kFilmTop);
  }
  return number();
}

// The number is one request, so no other client of the X server sees a part of it.
Moment Painter::number() {
  ++number_;
  constexpr int kWidth = kSquare * kNumberBits;
  Pixels squares;
  for (std::uint32_t y = 0; y < kSquare; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x)
      squares.push_back((number_ >> (x / kSquare) & 1) != 0 ? 0xFFFFFF : 0);
  }
  window_.put(squares, 0, 0, kWidth);
  window_.finish();
  return {number_, Clock::now()};
}

void Painter::paint(Scene scene) {
  const auto change = static_cast<int>(painted_++);
  if (scene == Scene::Typing) {
    const int columns = window_.width() / kCellWidth;
    window_.put(character(painted_), change % columns * kCellWidth,
                kPageTop + (4 + change / columns) * kLineHeight, kCellWidth);
  } else if (scene == Scene::Scrolling) {
    const int lines = (window_.height() - kPageTop) / kLineHeight;
    window_.move_up(kPageTop, lines * kLineHeight, kLineHeight);
    window_.put(text_line(static_cast<std::uint32_t>(lines + change), window_.width()), 0,
                kPageTop + (lines - 1) * kLineHeight, window_.width());
  } else {
    window_.put_film(kFilmHeight * (change % kFilmPictures), kFilmHeight, kFilmLeft, kFilmTop);
  }
}

std::vector<Moment> Painter::play(Scene scene, Clock::duration time) {
  const Clock::time_point start = Clock::now();
  std::vector<Schedule> schedules;
  for (const Beat& beat : beats_of(scene))
    schedules.emplace_back(beat, start);
  std::vector<Moment> changes;
  for (;;) {
    Schedule& first = *std::ranges::min_element(schedules, {}, &Schedule::next);
    if (first.next() >= start + time) return changes;
    std::this_thread::sleep_until(first.next());
    if (first.beat().paints) paint(scene);
    if (first.beat().counts) {
      changes.push_back(number());
    } else {
      window_.finish();
    }
    first.advance();
  }
}

}  // namespace vantelink_bench
