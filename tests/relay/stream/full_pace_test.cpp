// Which machines count as sending unchanged pictures at full pace.
#include "relay/stream/full_pace.h"

#include <vector>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;
using Payload = std::vector<std::uint8_t>;

constexpr int kFps = 30;

class FullPaceTest : public testing::Test {
 protected:
  // Pictures arrive at the pace for so long; `make` gets the number of each.
  template <class Make>
  void send(Clock::duration time, Make make, Clock::duration between = 1000ms / kFps) {
    for (const auto end = now_ + time; now_ < end; now_ += between)
      pace_.picture(now_, make(count_++));
  }
  [[nodiscard]] bool is(int fps = kFps) const { return pace_.is(now_, fps); }

  static Payload delta(std::size_t size) {
    Payload picture = {0, 0, 0, 1, 0x41};
    picture.resize(size, 0x55);
    return picture;
  }
  static Payload key() { return {0, 0, 0, 1, 0x65, 0x88}; }
  static Payload jpeg(int number) { return {0xff, 0xd8, static_cast<std::uint8_t>(number)}; }

  Clock::time_point now_ = Clock::time_point() + 1h;
  FullPace pace_;
  int count_ = 0;
};

TEST_F(FullPaceTest, EqualJpegPicturesAtThePaceAreUnchanged) {
  send(3s, [](int) { return jpeg(7); });
  EXPECT_TRUE(is());
}

TEST_F(FullPaceTest, DifferentJpegPicturesHaveChanged) {
  send(5s, [](int number) { return jpeg(number); });
  EXPECT_FALSE(is());
}

TEST_F(FullPaceTest, SmallH264PicturesAreUnchangedWhateverTheKeyFramesAre) {
  send(5s, [](int number) { return number % 60 == 0 ? key() : delta(256); });
  EXPECT_TRUE(is());
}

TEST_F(FullPaceTest, LargerH264PicturesHaveChanged) {
  send(5s, [](int) { return delta(257); });
  EXPECT_FALSE(is());
}

TEST_F(FullPaceTest, OneChangeInTenPicturesIsNoLongerUnchanged) {
  send(5s, [](int number) { return delta(number % 8 == 0 ? 1000 : 20); });
  EXPECT_FALSE(is());
}

TEST_F(FullPaceTest, StillScreenOfAMachineThatDuplicatesIsNotAtFullPace) {
  send(
      10s, [](int) { return delta(20); }, 1s);
  EXPECT_FALSE(is());
  EXPECT_FALSE(is(2)) << "one picture a second is less than the pace even of two";
}

TEST_F(FullPaceTest, MachineThatIsTooSlowForThePaceIsNotAtFullPace) {
  send(
      5s, [](int) { return delta(20); }, 100ms);
  EXPECT_FALSE(is());
  EXPECT_TRUE(is(12));
}

TEST_F(FullPaceTest, OnlyTheLastThreeSecondsCount) {
  send(5s, [](int) { return delta(20); });
  send(3s, [](int) { return delta(2000); });
  EXPECT_FALSE(is());
  send(3100ms, [](int) { return delta(20); });
  EXPECT_TRUE(is());
  now_ += 3s;
  EXPECT_FALSE(is()) << "nothing arrives any more";
}

TEST_F(FullPaceTest, NewStreamIsJudgedByItself) {
  send(5s, [](int) { return delta(20); });
  pace_.begin();
  EXPECT_FALSE(is());
}

TEST_F(FullPaceTest, EmptyPicturesAreAccepted) {
  send(1s, [](int) { return Payload(); });
  EXPECT_FALSE(is());
}

}  // namespace
}  // namespace vlk::relay
