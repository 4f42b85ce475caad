// The times at which a modelled line's packets arrive.
#include "relay/net/line/line_model.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr LineTime kStart{};
constexpr std::size_t kBytes = 1000;

TEST(LineModelTest, PacketsLeaveOneAfterTheOtherAtTheLinesRateAndArriveAfterItsDelay) {
  LineModel line({.bits_per_second = 8000, .delay = milliseconds(300)});
  EXPECT_EQ(line.send(kBytes, kStart).arrival, kStart + milliseconds(1300));
  EXPECT_EQ(line.send(kBytes, kStart).arrival, kStart + milliseconds(2300));
  const LineTime later = kStart + seconds(10);
  EXPECT_EQ(line.send(kBytes, later).arrival, later + milliseconds(1300));
}

TEST(LineModelTest, LineAcceptsPacketsUntilItsQueueIsFull) {
  LineModel line({.bits_per_second = 8000, .queue = 2 * kBytes});
  for (int i = 0; i < 2; ++i) {
    EXPECT_LE(line.accepts_at(), kStart);
    (void)line.send(kBytes, kStart);
  }
  EXPECT_LE(line.accepts_at(), kStart);
  (void)line.send(kBytes, kStart);
  EXPECT_EQ(line.accepts_at(), kStart + seconds(1));
}

TEST(LineModelTest, LineWithoutLimitsDelaysNothing) {
  LineModel line({});
  for (int i = 0; i < 1000; ++i)
    EXPECT_EQ(line.send(kPacketBytes, kStart).arrival, kStart);
  EXPECT_LE(line.accepts_at(), kStart);
}

TEST(LineModelTest, FirstLossCostsARoundTripAndFurtherOnesATimeoutThatDoubles) {
  const milliseconds delay(300), timeout(800);
  LineModel line({.delay = delay, .loss = 0.5});
  int lost = 0, lost_again = 0, lost_thrice = 0;
  constexpr int kPackets = 8000;
  for (int i = 0; i < kPackets; ++i) {
    const auto stall = line.send(kBytes, kStart).arrival - kStart - delay;
    EXPECT_TRUE(stall == milliseconds(0) || stall == 2 * delay || stall >= 2 * delay + timeout);
    lost += stall > milliseconds(0);
    lost_again += stall >= 2 * delay + timeout;
    lost_thrice += stall >= 2 * delay + 3 * timeout;
  }
  EXPECT_NEAR(lost, kPackets / 2, kPackets / 40);
  EXPECT_NEAR(lost_again, kPackets / 4, kPackets / 40);
  EXPECT_NEAR(lost_thrice, kPackets / 8, kPackets / 40);
}

TEST(LineModelTest, LostPacketTakesRoomOnTheLineAgain) {
  LineModel line({.bits_per_second = 8000, .loss = 0.5, .queue = 0});
  constexpr int kPackets = 1000;
  for (int i = 0; i < kPackets; ++i)
    (void)line.send(kBytes, kStart);
  const auto taken = std::chrono::duration<double>(line.accepts_at() - kStart).count();
  EXPECT_NEAR(taken, 2 * kPackets, kPackets / 5.0);
}

TEST(LineModelTest, PacketThatMeetsAnOutageArrivesAtTheFirstRepetitionAfterIt) {
  const Outage outage{kStart + seconds(10), kStart + seconds(30)};
  LineModel line({.delay = milliseconds(400), .outage = outage});
  const LineTime before = outage.begin - milliseconds(1);
  EXPECT_EQ(line.send(kBytes, before).arrival, before + milliseconds(400));
  // Timeouts of 1, 2, 4, 8 and 16 s.
  const LineModel::Passage passage = line.send(kBytes, outage.begin);
  EXPECT_EQ(passage.held_until, outage.begin + seconds(31));
  EXPECT_EQ(passage.arrival, outage.begin + seconds(31) + milliseconds(400));
  EXPECT_EQ(line.send(kBytes, outage.end).arrival, outage.end + milliseconds(400));
}

TEST(LineModelTest, TimeoutsInALongOutageGrowTo120Seconds) {
  const Outage outage{kStart, kStart + seconds(600)};
  LineModel line({.delay = milliseconds(400), .outage = outage});
  // 1 + 2 + 4 + ... + 64 = 127, and four times 120.
  EXPECT_EQ(line.send(kBytes, kStart).held_until, kStart + seconds(127 + 4 * 120));
}

TEST(LineModelTest, RequestToConnectInAnOutageIsRepeated) {
  const Outage outage{kStart, kStart + seconds(20)};
  const LineModel line({.outage = outage});
  EXPECT_EQ(line.request_passes(outage.begin), kStart + seconds(31));
  EXPECT_EQ(line.request_passes(kStart + seconds(18)), kStart + seconds(21));
  EXPECT_EQ(line.request_passes(outage.end), outage.end);
}

}  // namespace
}  // namespace vlk::relay
