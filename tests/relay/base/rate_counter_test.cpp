// The rate counter: its sliding window, and the limit on the number of keys.
#include "relay/base/counting/rate_counter.h"

#include <string>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using std::chrono::seconds;

TEST(RateCounterTest, KeyIsExhaustedWhileTheWindowContainsAsManyEventsAsTheLimit) {
  RateCounter counter(2, seconds(600), 100);
  const auto start = Clock::now();
  EXPECT_FALSE(counter.exhausted("key", start));
  counter.add("key", start);
  EXPECT_FALSE(counter.exhausted("key", start));
  counter.add("key", start + seconds(10));
  EXPECT_TRUE(counter.exhausted("key", start + seconds(599)));
  EXPECT_FALSE(counter.exhausted("key", start + seconds(600))) << "the first event has left the window";
}

TEST(RateCounterTest, TakingBackRemovesTheNewestEventOfAKeyAndForgettingRemovesTheKey) {
  RateCounter counter(2, seconds(600), 100);
  const auto start = Clock::now();
  counter.add("key", start);
  counter.add("key", start);
  counter.take_back("key");
  EXPECT_FALSE(counter.exhausted("key", start));
  counter.take_back("key");
  counter.take_back("key");
  EXPECT_EQ(counter.keys(), 0u);
  counter.add("key", start);
  counter.forget("key");
  EXPECT_EQ(counter.keys(), 0u);
}

TEST(RateCounterTest, KeyWithTheOldestLastEventIsRemovedWhenThereAreTooManyKeys) {
  RateCounter counter(2, seconds(600), 100);
  const auto start = Clock::now();
  for (int i = 0; i < 1000; ++i)
    counter.add("key" + std::to_string(i), start + seconds(i) / 10);
  EXPECT_EQ(counter.keys(), 100u);
  const auto end = start + seconds(100);
  counter.add("key999", end);
  EXPECT_TRUE(counter.exhausted("key999", end));
  EXPECT_FALSE(counter.exhausted("key0", end));
  EXPECT_FALSE(counter.exhausted("key999", end + seconds(600)));
}

}  // namespace
}  // namespace vlk::relay
