// The stages of the way of the pictures, with clocks that have different zeros.
#include "relay/stream/times/stage_meter.h"

#include <limits>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;
using std::chrono::milliseconds;

// How long one picture needs for each part of its way.
struct Trip {
  milliseconds machine = 0ms;
  milliseconds to_relay = 20ms;
  milliseconds to_browser = 30ms;  // with the relay's queue
  milliseconds decoder = 4ms;
  milliseconds screen = 8ms;
  milliseconds report = 30ms;  // from the browser to the relay
};

class StageMeterTest : public testing::Test {
 protected:
  // A picture is captured so long after the start, and reported by itself.
  void send(milliseconds captured, const Trip& trip = {}) {
    const auto stamp = static_cast<std::uint64_t>(microseconds(captured).count());
    const Clock::time_point arrived = start_ + captured + trip.machine + trip.to_relay;
    stream_.arrived(arrived, stamp, 1000);
    const Clock::time_point sent = arrived + trip.to_browser + trip.decoder + trip.screen;
    const ShownPicture picture{stamp, trip.decoder + trip.screen, trip.decoder, trip.screen};
    meter_.shown(sent + trip.report, browser_time(sent), std::span(&picture, 1), stream_);
  }
  // The browser's clock has shown seven seconds at the start.
  [[nodiscard]] microseconds browser_time(Clock::time_point at) const {
    return std::chrono::duration_cast<microseconds>(at - start_) + 7s;
  }
  [[nodiscard]] StageMeter::Summary take(milliseconds relay = 0ms) { return meter_.take(20ms, relay); }

  const Clock::time_point start_ = Clock::time_point() + 1000h;
  StreamTimes stream_;
  StageMeter meter_;
};

TEST_F(StageMeterTest, StagesAddUpToTheTimeFromCaptureToDisplay) {
  send(0ms);
  send(100ms, {.machine = 40ms});
  const auto stages = take().stages;
  ASSERT_TRUE(stages);
  EXPECT_EQ(stages->machine, 20ms);
  EXPECT_EQ(stages->to_relay, 20ms);
  EXPECT_EQ(stages->relay, 0ms);
  EXPECT_EQ(stages->to_browser, 30ms);
  EXPECT_EQ(stages->decoder, 4ms);
  EXPECT_EQ(stages->screen, 8ms);
  EXPECT_EQ(stages->total(), 82ms);
}

TEST_F(StageMeterTest, QueueOfTheRelayIsNotPartOfTheLine) {
  send(0ms);
  send(100ms, {.to_browser = 90ms});
  const auto stages = take(30ms).stages;
  ASSERT_TRUE(stages);
  EXPECT_EQ(stages->relay, 30ms);
  EXPECT_EQ(stages->to_browser, 30ms);
  send(200ms);
  const auto next = take(200ms).stages;
  ASSERT_TRUE(next);
  EXPECT_EQ(next->relay, 30ms) << "pictures that are still on their way may have waited longer";
  EXPECT_EQ(next->to_browser, 0ms);
}

TEST_F(StageMeterTest, ReportThatIsLateChangesNothing) {
  send(0ms);
  send(100ms, {.report = 900ms});
  const auto stages = take().stages;
  ASSERT_TRUE(stages);
  EXPECT_EQ(stages->to_browser, 30ms);
}

TEST_F(StageMeterTest, AddedAgeIsThatOfTheWholeWay) {
  send(0ms);
  send(100ms, {.machine = 10ms, .to_browser = 40ms, .decoder = 24ms, .screen = 18ms});
  const AgeMeter::Summary ages = take().ages;
  EXPECT_EQ(ages.shown, 2u);
  EXPECT_EQ(ages.bytes, 2000u);
  EXPECT_EQ(ages.worst, 50ms);
}

TEST_F(StageMeterTest, PicturesAreSummarisedOnce) {
  send(0ms);
  (void)take();
  const auto empty = take();
  EXPECT_FALSE(empty.stages);
  EXPECT_EQ(empty.ages.shown, 0u);
}

TEST_F(StageMeterTest, NewStreamIsMeasuredByItself) {
  send(0ms);
  send(100ms, {.machine = 3000ms});
  stream_.begin();
  send(4000ms, {.to_relay = 500ms});
  const auto summary = take();
  EXPECT_EQ(summary.ages.shown, 1u);
  EXPECT_EQ(summary.ages.worst, 0ms);
  ASSERT_TRUE(summary.stages);
  EXPECT_EQ(summary.stages->machine, 0ms);
}

TEST_F(StageMeterTest, UnknownPicturesAreIgnored) {
  const ShownPicture unknown{5, 1ms, 1ms, 0ms};
  meter_.shown(start_, 7s, std::span(&unknown, 1), stream_);
  EXPECT_FALSE(take().stages);
}

TEST_F(StageMeterTest, NoTimesOfABrowserMakeTheWayNegativeOrLaterThanTheReport) {
  send(0ms);
  (void)take();
  stream_.arrived(start_ + 1s, 1'000'000, 10);
  const ShownPicture early{1'000'000, std::chrono::hours(200), 0ms, 0ms};
  const ShownPicture late{1'000'000, 0ms, std::chrono::hours(200), 0ms};
  meter_.shown(start_ + 2s, 0s, std::span(&early, 1), stream_);
  meter_.shown(start_ + 3s, microseconds(std::int64_t{1} << 53), std::span(&late, 1), stream_);
  const auto summary = take();
  EXPECT_GE(summary.stages->to_browser, 0ms);
  EXPECT_GE(summary.ages.worst, 0ms);
  EXPECT_LE(summary.ages.worst, 3s);
}

TEST(StreamTimesTest, PictureWaitedAsLongAsItExceedsTheLeast) {
  StreamTimes times;
  const auto start = Clock::now();
  EXPECT_FALSE(times.waited(start));
  times.arrived(start + 20ms, 0, 10);
  times.arrived(start + 150ms, 100'000, 20);
  EXPECT_EQ(times.find(0)->waited, 0ms);
  EXPECT_EQ(times.find(100'000)->waited, 30ms);
  EXPECT_EQ(times.find(100'000)->bytes, 20u);
  EXPECT_EQ(times.find(7), nullptr);
  EXPECT_EQ(times.waited(start + 200ms), 15ms);
  EXPECT_EQ(times.waited(start + 1100ms), 30ms) << "the first picture is older than a second";
  EXPECT_FALSE(times.waited(start + 2s));
}

TEST(StreamTimesTest, LastPicturesAreRemembered) {
  StreamTimes times;
  for (std::uint64_t i = 0; i <= StreamTimes::kRemembered; ++i)
    times.arrived(Clock::time_point(microseconds(i)), i, 1);
  EXPECT_EQ(times.find(0), nullptr);
  EXPECT_NE(times.find(1), nullptr);
  EXPECT_NE(times.find(StreamTimes::kRemembered), nullptr);
}

TEST(StreamTimesTest, NewStreamForgetsThePicturesOfTheOldOne) {
  StreamTimes times;
  times.arrived(Clock::now(), 5, 1);
  const std::uint32_t before = times.stream();
  times.begin();
  EXPECT_NE(times.stream(), before);
  EXPECT_EQ(times.find(5), nullptr);
}

TEST(StreamTimesTest, AnyStampIsAccepted) {
  StreamTimes times;
  for (const std::uint64_t stamp :
       {std::uint64_t{0}, std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 63}) {
    times.arrived(Clock::now(), stamp, 1);
    EXPECT_GE(times.find(stamp)->waited, 0us);
  }
}

TEST(StreamTimesTest, FileCountsForThreeSeconds) {
  StreamTimes times;
  const auto start = Clock::now();
  EXPECT_FALSE(times.sends_file(start));
  times.file_arrived(start);
  EXPECT_TRUE(times.sends_file(start + 3s));
  EXPECT_FALSE(times.sends_file(start + 3001ms));
}

}  // namespace
}  // namespace vlk::relay
