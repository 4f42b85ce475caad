// Holds the ladder's promises over random reports, restarts and choices.
#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "relay/stream/ladder.h"

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

class Steps {
 public:
  explicit Steps(std::uint64_t seed) : random_(seed) {}

  void run(int reports) {
    for (int i = 0; i < reports; ++i) {
      if (pick(400) == 0) situation_ = pick(5);
      if (pick(200) == 0) restart();
      if (pick(500) == 0) choose();
      give_report();
      ASSERT_GE(ladder_.asked().fps, kLeastRates.fps);
      ASSERT_LE(ladder_.asked().fps, kMostRates.fps);
      ASSERT_GE(ladder_.asked().bitrate, kLeastRates.bitrate);
      ASSERT_LE(ladder_.asked().bitrate, kMostRates.bitrate);
      if (testing::Test::HasFatalFailure()) return;
    }
  }

  int downs = 0;
  int ups = 0;

 private:
  int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }
  std::chrono::milliseconds time(int most) { return std::chrono::milliseconds(pick(most)); }

  void restart() {
    ladder_.started(now_);
    started_ = now_;
  }

  void choose() {
    const auto preset = static_cast<Preset>(pick(5));
    const StreamRates by_hand{pick(4000) - 2000, pick(2'000'000'000) - 1'000'000'000};
    const StreamRates before = ladder_.asked();
    const auto rates = ladder_.choose(preset, by_hand, now_);
    ASSERT_EQ(rates.has_value(), before != ladder_.asked());
    by_hand_ = preset == Preset::ByHand;
    if (rates) started_ = now_;
  }

  // Situations: a good line, an overloaded one, an interrupted one, a still screen, anything.
  LadderReport make_report() {
    const bool any = situation_ == 4;
    const bool late = situation_ == 1 || (any && pick(2) == 0);
    const bool quiet = situation_ == 3 || (any && pick(2) == 0);
    const auto second = static_cast<std::uint64_t>(ladder_.asked().bitrate / 8 / (quiet ? 50 : 1));
    LadderReport report{.now = now_ += 500ms + time(1000), .echo = 50ms + time(late ? 3000 : 100)};
    report.bytes = situation_ == 2 || (any && pick(2) == 0) ? 0 : second;
    report.other_bytes = any ? static_cast<std::uint64_t>(pick(1'000'000)) : 0;
    report.input = pick(30) == 0;
    report.full_pace = situation_ == 3;
    for (int i = pick(4); i >= 0; --i) {
      const auto age = time(late ? 1000 : 30);
      const AgeMeter::Summary seen{
          static_cast<std::uint32_t>(pick(60)), second, second / 4, 10, age, age + time(30)};
      report.viewers.push_back({pick(2) == 0, seen, late ? static_cast<std::uint32_t>(pick(5)) : 0});
    }
    return report;
  }

  void give_report() {
    const LadderReport report = make_report();
    const StreamRates before = ladder_.asked();
    const auto rates = ladder_.report(report);
    ASSERT_EQ(ladder_.asked(), rates.value_or(before));
    if (!rates) return;
    ASSERT_NE(*rates, before);
    ASSERT_FALSE(by_hand_);
    ASSERT_GT(report.bytes, 0u) << "the encoder may hang";
    ASSERT_GE(now_ - started_, 2s);
    const bool up = rates->bitrate > before.bitrate || rates->fps > before.fps;
    if (up) {
      ASSERT_GE(now_ - last_up_, 10s);
      last_up_ = now_;
      ++ups;
    } else {
      ASSERT_GE(now_ - last_down_, 3s);
      last_down_ = now_;
      ++downs;
    }
    started_ = now_;
  }

  std::mt19937_64 random_;
  Clock::time_point now_ = Clock::time_point() + 1h;
  Clock::time_point started_ = now_;
  Clock::time_point last_up_{};
  Clock::time_point last_down_{};
  bool by_hand_ = false;
  int situation_ = 0;
  Ladder ladder_{now_, {.round_trip = 50ms}};
};

TEST(LadderStepsTest, StepsKeepTheirDistanceAndTheRatesTheirLimits) {
  int downs = 0;
  int ups = 0;
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE(seed);
    Steps steps(seed);
    steps.run(10'000);
    if (HasFatalFailure()) return;
    downs += steps.downs;
    ups += steps.ups;
  }
  EXPECT_GT(downs, 200);
  EXPECT_GT(ups, 150);
}

}  // namespace
}  // namespace vlk::relay
