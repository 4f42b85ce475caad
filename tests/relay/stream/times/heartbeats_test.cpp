// The times of heartbeats and of their echoes.
#include "relay/stream/times/heartbeats.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

class HeartbeatsTest : public testing::Test {
 protected:
  [[nodiscard]] bool due(Clock::duration at, bool in_session = true) const {
    return beats_.due(start_ + at, 15s, in_session ? std::optional<Clock::duration>(1s) : std::nullopt);
  }
  std::uint32_t send(Clock::duration at) { return beats_.send(start_ + at, start_ + at - 1ms); }
  bool echo(std::uint32_t number, Clock::duration at) {
    return beats_.returned(number, start_ + at).has_value();
  }

  const Clock::time_point start_ = Clock::time_point() + 1000h;
  Heartbeats beats_;
};

TEST_F(HeartbeatsTest, AnEchoIsExpectedEachSecondDuringASessionAndEachFifteenOtherwise) {
  EXPECT_TRUE(due(0s, false)) << "the first";
  ASSERT_TRUE(echo(send(0s), 20ms));
  EXPECT_FALSE(due(999ms));
  EXPECT_TRUE(due(1s));
  EXPECT_FALSE(due(14999ms, false));
  EXPECT_TRUE(due(15s, false));
}

TEST_F(HeartbeatsTest, NextHeartbeatWaitsForTheEchoButNotLongerThanTheUsualInterval) {
  send(0s);
  EXPECT_FALSE(due(5s));
  EXPECT_TRUE(due(15s));
}

TEST_F(HeartbeatsTest, LateEchoMakesHeartbeatsLessFrequent) {
  ASSERT_TRUE(echo(send(0s), 100ms));
  ASSERT_TRUE(echo(send(1s), 2100ms));
  EXPECT_FALSE(due(8999ms)) << "the echo was 1 s later than the first";
  EXPECT_TRUE(due(9s));
  ASSERT_TRUE(echo(send(9s), 9100ms));
  EXPECT_TRUE(due(10s));
}

TEST_F(HeartbeatsTest, LongLineIsNotALateEcho) {
  ASSERT_TRUE(echo(send(0s), 600ms));
  EXPECT_TRUE(due(1s));
}

TEST_F(HeartbeatsTest, EchoOfAnEarlierHeartbeatCounts) {
  const std::uint32_t first = send(0s);
  const std::uint32_t second = send(15s);
  EXPECT_EQ(second, first + 1);
  const auto echo = beats_.returned(first, start_ + 20s);
  ASSERT_TRUE(echo);
  EXPECT_EQ(echo->follows, start_ - 1ms);
  EXPECT_EQ(echo->round_trip, 20s);
  EXPECT_EQ(beats_.returned(second, start_ + 21s)->round_trip, 6s);
}

TEST_F(HeartbeatsTest, EachHeartbeatIsAnsweredOnceAndUnknownNumbersAreIgnored) {
  const std::uint32_t first = send(0s);
  const std::uint32_t second = send(1s);
  EXPECT_FALSE(echo(second + 1, 2s));
  EXPECT_TRUE(echo(second, 2s));
  EXPECT_FALSE(echo(second, 3s));
  EXPECT_FALSE(echo(first, 3s)) << "the echoes keep their order";
}

TEST_F(HeartbeatsTest, QueueIsTheTimeByWhichTheEchoIsLongerThanTheLine) {
  EXPECT_EQ(beats_.queue(start_), 0ms);
  ASSERT_TRUE(echo(send(0s), 50ms));
  EXPECT_EQ(beats_.line(), 50ms);
  EXPECT_EQ(beats_.queue(start_ + 1s), 0ms);
  const std::uint32_t late = send(1s);
  EXPECT_EQ(beats_.queue(start_ + 1020ms), 0ms);
  EXPECT_EQ(beats_.echo(start_ + 4s), 3s) << "an echo that is missing is at least so late";
  EXPECT_EQ(beats_.queue(start_ + 4s), 2950ms);
  ASSERT_TRUE(echo(late, 5s));
  EXPECT_EQ(beats_.queue(start_ + 6s), 3950ms);
  ASSERT_TRUE(echo(send(21s), 21060ms));
  EXPECT_EQ(beats_.queue(start_ + 22s), 10ms);
}

TEST_F(HeartbeatsTest, LineIsTheLeastOfTenMinutes) {
  ASSERT_TRUE(echo(send(0s), 50ms));
  for (int i = 1; i <= 39; ++i)
    ASSERT_TRUE(echo(send(15s * i), 15s * i + 2s));
  EXPECT_EQ(beats_.line(), 50ms);
  ASSERT_TRUE(echo(send(615s), 617s));
  EXPECT_EQ(beats_.line(), 2s);
}

TEST_F(HeartbeatsTest, HeartbeatsWithoutAnEchoNeedBoundedMemory) {
  std::uint32_t last = 0;
  for (int i = 0; i < 1000; ++i)
    last = send(15s * i);
  EXPECT_FALSE(echo(last - 64, 4h));
  EXPECT_TRUE(echo(last - 63, 5h));
}

}  // namespace
}  // namespace vlk::relay
