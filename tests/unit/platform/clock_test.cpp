// The steady clock. Frame pacing needs sleeps that never end early.
#include "platform/clock.h"

#include <gtest/gtest.h>

namespace vlk {
namespace {

TEST(SteadyClock, SleepNeverEndsEarly) {
  const Clock clock = steady_clock();
  // The sleeps last up to two milliseconds, most of them not a whole number of milliseconds.
  for (int i = 0; i <= 100; ++i) {
    const std::int64_t deadline = clock.now() + i * 20000;
    clock.sleep_until(deadline);
    EXPECT_GE(clock.now(), deadline);
  }
}

TEST(SteadyClock, SleepUntilAPastDeadlineReturnsAndTimeNeverGoesBack) {
  const Clock clock = steady_clock();
  std::int64_t last = clock.now();
  for (int i = 0; i < 1000; ++i) {
    clock.sleep_until(last - 1000000000);
    const std::int64_t now = clock.now();
    ASSERT_GE(now, last);
    last = now;
  }
}

}  // namespace
}  // namespace vlk
