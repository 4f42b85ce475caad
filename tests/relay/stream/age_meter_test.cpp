// The least value of the last minute, and the added age of pictures.
#include "relay/stream/age_meter.h"

#include <limits>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

class AgeMeterTest : public testing::Test {
 protected:
  // A picture that was captured after `captured` is shown `age` later.
  void show(std::chrono::milliseconds captured, std::chrono::milliseconds age, std::size_t bytes = 100) {
    const auto stamp = std::chrono::duration_cast<std::chrono::microseconds>(captured).count();
    meter_.shown(start_ + captured + age, static_cast<std::uint64_t>(stamp), bytes);
  }

  const Clock::time_point start_ = Clock::time_point() + 1000h;
  AgeMeter meter_;
};

TEST_F(AgeMeterTest, AgeIsComparedWithTheYoungestPictureOfTheLastMinute) {
  show(0s, 70ms);
  show(100ms, 80ms, 4000);
  show(200ms, 370ms, 50);
  const auto summary = meter_.take();
  EXPECT_EQ(summary.shown, 3u);
  EXPECT_EQ(summary.bytes, 4150u);
  EXPECT_EQ(summary.largest, 4000u);
  EXPECT_EQ(summary.smallest, 50u);
  EXPECT_EQ(summary.median, 10ms);
  EXPECT_EQ(summary.worst, 300ms);
}

TEST_F(AgeMeterTest, EachPictureIsSummarisedOnce) {
  show(0s, 70ms);
  (void)meter_.take();
  EXPECT_EQ(meter_.take().shown, 0u);
  show(1s, 90ms);
  EXPECT_EQ(meter_.take().worst, 20ms);
}

TEST_F(AgeMeterTest, AgeOfALongerPathIsTheLeastAgeAfterAMinute) {
  show(0s, 70ms);
  for (int second = 1; second <= 59; ++second)
    show(std::chrono::seconds(second), 370ms);
  EXPECT_EQ(meter_.take().worst, 300ms);
  show(61s, 370ms);
  EXPECT_EQ(meter_.take().worst, 0ms);
}

TEST_F(AgeMeterTest, StampsOfANewStreamAreComparedWithEachOtherOnly) {
  show(100s, 70ms);
  show(101s, 170ms);
  meter_.restart();
  const auto none = meter_.take();
  EXPECT_EQ(none.shown, 0u);
  EXPECT_EQ(none.worst, 0ms);
  meter_.shown(start_ + 200s, 0, 100);
  meter_.shown(start_ + 200s + 50ms, 20'000, 100);
  EXPECT_EQ(meter_.take().worst, 30ms);
}

TEST_F(AgeMeterTest, AnyStampIsAccepted) {
  for (const std::uint64_t stamp : {std::uint64_t{0}, std::numeric_limits<std::uint64_t>::max(),
                                    std::uint64_t{1} << 63, std::uint64_t{1} << 50})
    meter_.shown(start_, stamp, 100);
  const auto summary = meter_.take();
  EXPECT_EQ(summary.shown, 4u);
  EXPECT_GE(summary.worst, 0ms);
  EXPECT_LE(summary.worst, std::chrono::hours(24 * 365 * 40)) << "no difference overflows";
}

TEST_F(AgeMeterTest, ConfirmationsWithoutEndNeedBoundedMemory) {
  for (int i = 0; i < 5000; ++i)
    show(std::chrono::milliseconds(i), 70ms);
  EXPECT_EQ(meter_.take().shown, 1000u);
}

TEST(RecentLeastTest, LeastValueCountsForAMinute) {
  RecentLeast least;
  const auto start = Clock::now();
  EXPECT_EQ(least.add(start, 5ms), 5ms);
  EXPECT_EQ(least.add(start + 10s, 8ms), 5ms);
  EXPECT_EQ(least.add(start + 20s, 6ms), 5ms);
  EXPECT_EQ(least.add(start + 60s, 9ms), 5ms);
  EXPECT_EQ(least.add(start + 61s, 9ms), 6ms);
  EXPECT_EQ(least.add(start + 62s, 1ms), 1ms);
}

TEST(RecentLeastTest, AnotherTimeCanBeRemembered) {
  RecentLeast least(std::chrono::minutes(10));
  const auto start = Clock::now();
  EXPECT_EQ(least.add(start, 5ms), 5ms);
  EXPECT_EQ(least.add(start + 10min, 8ms), 5ms);
  EXPECT_EQ(least.add(start + 11min, 9ms), 8ms);
}

}  // namespace
}  // namespace vlk::relay
