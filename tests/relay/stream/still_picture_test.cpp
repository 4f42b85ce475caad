// The watch over a picture that stands still under input, on a simulated machine.
#include "relay/stream/still_picture.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;
using Action = StillPicture::Action;
using State = StillPicture::State;
using std::chrono::milliseconds;

// A machine whose screen changes every `change`, and is sent again after a second without a change.
class StillPictureTest : public testing::Test {
 protected:
  StillPictureTest() { start(); }

  void start(int fps = 60) {
    watch_.started(now_, fps);
    captured_ = -1000ms;
    stamp_ = 0ms;
  }
  // Lets time pass in ticks of 100 ms, and collects what the watch asks for.
  void pass(milliseconds time) {
    for (const auto end = now_ + time; now_ < end;) {
      now_ += 100ms;
      stamp_ += 100ms;
      if (input_) watch_.input(now_);
      if (sends_ && stamp_ - captured_ >= (changes_ ? 100ms : 1000ms)) {
        captured_ = stamp_;
        watch_.picture(now_, static_cast<std::uint64_t>(1000 * stamp_.count()));
      }
      const Action action = watch_.tick(now_, line_late_);
      if (action == Action::None) continue;
      (action == Action::StartAgain ? starts_ : key_frames_).push_back(now_ - began_);
      if (action == Action::StartAgain) start();
      if (action == Action::StartAgain && new_stream_changes_) changes_ = true;
    }
  }

  Clock::time_point now_ = Clock::time_point() + 1h;
  const Clock::time_point began_ = now_;
  StillPicture watch_;
  milliseconds stamp_{};
  milliseconds captured_{};
  bool input_ = false;
  bool changes_ = false;
  bool sends_ = true;
  bool line_late_ = false;
  bool new_stream_changes_ = false;
  std::vector<Clock::duration> starts_;
  std::vector<Clock::duration> key_frames_;
};

TEST_F(StillPictureTest, ChangingPictureNeedsNothing) {
  input_ = changes_ = true;
  pass(10min);
  EXPECT_TRUE(key_frames_.empty());
  EXPECT_TRUE(starts_.empty());
  EXPECT_EQ(watch_.state(), State::Follows);
}

TEST_F(StillPictureTest, StillPictureWithoutInputNeedsNothing) {
  pass(10min);
  EXPECT_TRUE(key_frames_.empty());
  EXPECT_TRUE(starts_.empty());
  EXPECT_EQ(watch_.state(), State::Follows);
}

TEST_F(StillPictureTest, KeyFrameIsRequestedAfterTwoSecondsAndAStreamStartedAfterFour) {
  pass(10s);
  input_ = true;
  pass(2s);
  EXPECT_EQ(watch_.state(), State::Follows);
  pass(100ms);
  EXPECT_EQ(key_frames_, std::vector<Clock::duration>{12100ms});
  EXPECT_EQ(watch_.state(), State::Still);
  pass(1900ms);
  EXPECT_TRUE(starts_.empty());
  pass(100ms);
  EXPECT_EQ(starts_, std::vector<Clock::duration>{14100ms});
  EXPECT_EQ(watch_.state(), State::StartedAgain);
  pass(4s);
  EXPECT_EQ(watch_.state(), State::Unchanged);
  EXPECT_EQ(key_frames_.size(), 1u);
}

TEST_F(StillPictureTest, InputThatPausesIsNotFollowedByANewStream) {
  for (int i = 0; i < 50; ++i) {
    input_ = true;
    pass(3s);
    input_ = false;
    pass(2s);
    EXPECT_EQ(watch_.state(), State::Follows);
  }
  EXPECT_TRUE(starts_.empty());
  EXPECT_LE(key_frames_.size(), 25u) << "at most one in 10 s";
}

TEST_F(StillPictureTest, OneChangeIsEnough) {
  for (int i = 0; i < 50; ++i) {
    input_ = true;
    pass(3900ms);
    changes_ = true;
    pass(300ms);
    changes_ = false;
  }
  EXPECT_TRUE(starts_.empty());
}

TEST_F(StillPictureTest, NewStreamsThatDoNotHelpAreStartedMoreAndMoreSeldom) {
  input_ = true;
  pass(120min);
  ASSERT_EQ(starts_.size(), 11u);
  auto wait = Clock::duration(60s);
  for (std::size_t i = 1; i < starts_.size(); ++i, wait = std::min<Clock::duration>(2 * wait, 960s))
    EXPECT_EQ(starts_[i] - starts_[i - 1], wait) << i;
}

TEST_F(StillPictureTest, LostDuplicationIsRepairedEachTime) {
  input_ = new_stream_changes_ = true;
  for (std::size_t i = 1; i <= 20; ++i) {
    changes_ = false;
    pass(4500ms);
    EXPECT_EQ(starts_.size(), i);
    pass(10s);
    EXPECT_EQ(watch_.state(), State::Follows);
  }
}

TEST_F(StillPictureTest, NewStreamsAreAtLeastTenSecondsApart) {
  input_ = new_stream_changes_ = true;
  for (int i = 0; i < 100; ++i) {
    pass(6s);
    changes_ = false;
  }
  ASSERT_GE(starts_.size(), 10u);
  for (std::size_t i = 1; i < starts_.size(); ++i)
    EXPECT_GE(starts_[i] - starts_[i - 1], 10s);
}

TEST_F(StillPictureTest, PicturesAtTheBeginningOfAStreamAreNotAChange) {
  input_ = true;
  pass(4100ms);
  ASSERT_EQ(watch_.state(), State::StartedAgain);
  watch_.picture(now_, 0);
  watch_.picture(now_, 300'000);
  EXPECT_EQ(watch_.state(), State::StartedAgain);
  watch_.picture(now_, 1'600'000);
  watch_.picture(now_, 1'900'000);
  EXPECT_EQ(watch_.state(), State::Follows);
}

TEST_F(StillPictureTest, NewStreamThatHelpedEndsTheLongWaits) {
  input_ = true;
  pass(20min);
  changes_ = true;
  pass(20min);
  new_stream_changes_ = true;
  changes_ = false;
  pass(10s);
  ASSERT_TRUE(changes_);
  changes_ = new_stream_changes_ = false;
  const std::size_t before = starts_.size();
  pass(100s);
  ASSERT_EQ(starts_.size(), before + 2);
  EXPECT_EQ(starts_[before + 1] - starts_[before], 60s);
}

TEST_F(StillPictureTest, ChangeLongAfterANewStreamDoesNotShortenTheWait) {
  input_ = true;
  pass(20s);
  changes_ = true;
  pass(1s);
  changes_ = false;
  pass(40s);
  EXPECT_EQ(starts_.size(), 1u);
}

TEST_F(StillPictureTest, NoStreamIsStartedWhileNoPicturesArrive) {
  pass(3s);
  sends_ = false;
  input_ = true;
  pass(10min);
  EXPECT_TRUE(starts_.empty());
  EXPECT_EQ(watch_.state(), State::Silent);
  EXPECT_FALSE(watch_.may_start(now_));
  sends_ = true;
  pass(1s);
  EXPECT_NE(watch_.state(), State::Silent);
  EXPECT_TRUE(watch_.may_start(now_));
  pass(5s);
  EXPECT_EQ(starts_.size(), 1u);
}

TEST_F(StillPictureTest, NoStreamIsStartedSoonAfterTheLastPicture) {
  input_ = true;
  pass(500ms);
  sends_ = false;
  pass(4s);
  EXPECT_NE(watch_.state(), State::Silent);
  EXPECT_TRUE(starts_.empty());
}

TEST_F(StillPictureTest, MachineThatSendsAgainIsNotSilent) {
  sends_ = false;
  pass(6s);
  EXPECT_EQ(watch_.state(), State::Silent);
  sends_ = true;
  pass(1s);
  EXPECT_EQ(watch_.state(), State::Follows);
}

TEST_F(StillPictureTest, StreamThatWasStartedForAnotherReasonGetsItsTime) {
  input_ = true;
  pass(3900ms);
  start();
  pass(3900ms);
  EXPECT_TRUE(starts_.empty());
  pass(100ms);
  EXPECT_EQ(starts_.size(), 1u);
}

TEST_F(StillPictureTest, PicturesOfTwoStreamsAreNotCompared) {
  input_ = true;
  pass(4100ms);
  watch_.picture(now_, 1'400'000);
  start();
  watch_.picture(now_, 1'600'000);
  EXPECT_EQ(watch_.state(), State::StartedAgain);
}

TEST_F(StillPictureTest, StreamThatBroughtNoPictureIsNotStartedAgain) {
  input_ = true;
  pass(3900ms);
  sends_ = false;
  pass(300ms);
  ASSERT_EQ(starts_.size(), 1u);
  EXPECT_FALSE(watch_.may_start(now_));
  pass(60min);
  EXPECT_EQ(starts_.size(), 1u);
  EXPECT_EQ(watch_.state(), State::Silent);
}

TEST_F(StillPictureTest, NothingIsJudgedWhileTheLineIsLate) {
  input_ = line_late_ = true;
  pass(10min);
  sends_ = false;
  pass(1min);
  sends_ = true;
  EXPECT_TRUE(key_frames_.empty());
  EXPECT_TRUE(starts_.empty());
  EXPECT_EQ(watch_.state(), State::Follows);
  line_late_ = false;
  pass(4s);
  EXPECT_TRUE(starts_.empty()) << "the time of the late line does not count";
}

TEST_F(StillPictureTest, StreamOfOnePictureASecondIsNotWatched) {
  start(1);
  input_ = true;
  pass(10min);
  EXPECT_TRUE(key_frames_.empty());
  EXPECT_TRUE(starts_.empty());
}

TEST_F(StillPictureTest, StampsInAnyOrderStartNoStreamsInARow) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 100'000; ++i) {
    now_ += milliseconds(random() % 200);
    if (random() % 3 != 0) watch_.input(now_);
    if (random() % 2 != 0) watch_.picture(now_, random() >> random() % 64);
    const bool may_start = watch_.may_start(now_);
    const Action action = watch_.tick(now_, random() % 100 == 0);
    if (action != Action::StartAgain) continue;
    ASSERT_TRUE(may_start);
    ASSERT_TRUE(starts_.empty() || now_ - began_ - starts_.back() >= 10s);
    starts_.push_back(now_ - began_);
    watch_.started(now_, 60);
  }
}

}  // namespace
}  // namespace vlk::relay
