// Durations that are counted by their length, and the loop's lag.
#include "relay/base/counting/duration_counts.h"

#include <gtest/gtest.h>

#include "relay/base/counting/loop_lag.h"

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

TEST(DurationCountsTest, DurationBelongsToTheClassWhoseBoundItDoesNotExceed) {
  DurationCounts counts;
  for (const auto duration : {0ns, 1'000'000ns, 1'000'001ns, 10'000'000'000ns, 10'000'000'001ns})
    counts.add(duration);
  EXPECT_EQ(counts.classes()[0], 2u);
  EXPECT_EQ(counts.classes()[1], 1u);
  EXPECT_EQ(counts.classes()[12], 1u);
  EXPECT_EQ(counts.classes()[13], 1u);
  EXPECT_EQ(counts.sum(), 20'002'000'002ns);
}

TEST(DurationCountsTest, BoundOfAPartIsThatOfItsLastDuration) {
  DurationCounts counts;
  EXPECT_EQ(counts.bound_of(0.99), std::nullopt);
  for (int i = 0; i < 99; ++i)
    counts.add(3ms);
  counts.add(1min);
  EXPECT_EQ(counts.bound_of(0.99), 5ms);
  EXPECT_EQ(counts.bound_of(1), std::nullopt);
}

TEST(LoopLagTest, WorstLagIsForgottenAfterTwoMinutes) {
  LoopLag lag;
  const auto begin = Clock::now();
  const auto late = [&](Clock::duration at, Clock::duration by) { lag.add(begin + at, begin + at + by); };
  late(0s, 40ms);
  late(30s, 10ms);
  late(31s, -5ms);
  EXPECT_EQ(lag.worst(), 40ms);
  late(90s, 20ms);
  EXPECT_EQ(lag.worst(), 40ms);
  late(151s, 1ms);
  EXPECT_EQ(lag.worst(), 20ms);
  late(10min, 2ms);
  EXPECT_EQ(lag.worst(), 2ms);
  EXPECT_EQ(lag.counts().sum(), 73ms);
}

}  // namespace
}  // namespace vlk::relay
