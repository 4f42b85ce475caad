// Which reports of a line move the rates, and by how much.
#include "relay/stream/ladder_fixture.h"

namespace vlk::relay {
namespace {

TEST_F(LadderTest, FirstRatesFitASlowLineUnlessTheMachinesLineIsKnown) {
  EXPECT_EQ(ladder_.asked(), (StreamRates{15, 340'000}));
  begin(6'000'000);
  EXPECT_EQ(ladder_.asked(), (StreamRates{60, 5'600'000}));
}

TEST_F(LadderTest, TwoLateReportsLowerTheRatesToWhatTheLineCarries) {
  begin(5'600'000);
  EXPECT_FALSE(ladder_.report(in_time()));
  EXPECT_FALSE(ladder_.report(in_time()));
  EXPECT_EQ(lower(1'000'000), (StreamRates{20, 500'000})) << "what it carried before does not count";
  EXPECT_EQ(ladder_.asked(), (StreamRates{20, 500'000}));
}

TEST_F(LadderTest, SingleLateReportChangesNothing) {
  begin(5'600'000);
  (void)seconds_to_step(3);
  EXPECT_FALSE(ladder_.report(late(1'000'000)));
  EXPECT_TRUE(ladder_.late());
  EXPECT_FALSE(ladder_.report(still()));
  EXPECT_FALSE(ladder_.late());
  EXPECT_FALSE(ladder_.report(late(1'000'000)));
}

TEST_F(LadderTest, QueueThatBecomesShorterChangesNothing) {
  begin(5'600'000);
  EXPECT_FALSE(ladder_.report(late(1'000'000)));
  for (const auto age : {400ms, 300ms, 200ms}) {
    LadderReport report = late(1'000'000);
    report.viewers[0].pictures.median = age * 3 / 4;
    report.echo = 50ms + age * 3 / 4;
    EXPECT_FALSE(ladder_.report(report)) << age.count();
    now_ += 1s;
  }
}

TEST_F(LadderTest, HeartbeatThatWasSentBeforeTheStreamSaysNothing) {
  begin(5'600'000);
  for (int i = 1; i <= 8; ++i) {
    LadderReport report = still();
    report.echo = std::chrono::seconds(i) + 500ms;
    EXPECT_FALSE(ladder_.report(report)) << i;
    EXPECT_FALSE(ladder_.late()) << i;
  }
}

TEST_F(LadderTest, ViewerThatLosesPicturesIsLate) {
  begin(5'600'000);
  std::optional<StreamRates> rates;
  for (int i = 0; i < 5 && !rates; ++i) {
    LadderReport report = in_time();
    report.viewers[0].dropped = 30;
    report.viewers[0].pictures.bytes = 125'000;
    rates = ladder_.report(report);
  }
  EXPECT_EQ(rates, (StreamRates{20, 500'000}));
}

TEST_F(LadderTest, KeyFramesThatTakeTooLongLowerTheRates) {
  begin(1'100'000);
  std::optional<StreamRates> rates;
  for (int i = 0; i < 12 && !rates; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.worst = 160ms;
    if (i % 2 != 0) {  // no key frame in this second
      report.viewers[0].pictures.largest /= 20;
      report.viewers[0].pictures.smallest = 10;
      report.viewers[0].pictures.worst = 1ms;
    }
    rates = ladder_.report(report);
  }
  EXPECT_EQ(rates, (StreamRates{30, 750'000}));
}

TEST_F(LadderTest, SomeKeyFramesInTimeShowThatTheOthersWereDelayedByALoss) {
  begin(1'100'000);
  for (int i = 0; i < 100; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.worst = i % 4 == 3 ? 100ms : 160ms;
    EXPECT_FALSE(ladder_.report(report));
  }
}

TEST_F(LadderTest, RatesStayIfLowerOnesDoNotMakeKeyFramesSmaller) {
  begin(1'100'000);
  int steps = 0;
  for (int i = 0; i < 100; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.largest = 60'000;
    report.viewers[0].pictures.worst = 240ms;
    steps += ladder_.report(report).has_value();
  }
  EXPECT_EQ(steps, 1);
}

TEST_F(LadderTest, RatesRiseWhileTheStreamUsesThemAndKeyFramesAreFast) {
  EXPECT_LE(seconds_to_step(20), 6);
  EXPECT_EQ(ladder_.asked(), (StreamRates{30, 1'100'000})) << "key frames of higher rates would take 100 ms";
  EXPECT_EQ(seconds_to_step(20), 10);
  for (int i = 0; i < 5; ++i)
    (void)seconds_to_step(20);
  EXPECT_EQ(ladder_.asked(), (StreamRates{60, 18'000'000}));
  EXPECT_EQ(seconds_to_step(100), 100) << "there are no higher rates";
}

TEST_F(LadderTest, RatesRiseEightfoldAtMost) {
  std::optional<StreamRates> rates;
  for (int i = 0; i < 6 && !rates; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.worst = 1ms;
    rates = ladder_.report(report);
  }
  EXPECT_EQ(rates, (StreamRates{60, 2'500'000}));
}

TEST_F(LadderTest, SmallPicturesShowLittleAboutTheLine) {
  std::optional<StreamRates> rates;
  for (int i = 0; i < 6 && !rates; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.largest = 2500;
    report.viewers[0].pictures.worst = 0ms;
    rates = ladder_.report(report);
  }
  EXPECT_EQ(rates, (StreamRates{60, 1'650'000}));
}

TEST_F(LadderTest, RatesDoNotRiseIfTheirKeyFramesWouldBeLate) {
  for (int i = 0; i < 100; ++i) {
    LadderReport report = in_time();
    report.viewers[0].pictures.worst = 90ms;
    EXPECT_FALSE(ladder_.report(report));
  }
}

TEST_F(LadderTest, RatesRiseToASharpPictureWhileADuplicatedDesktopIsStill) {
  std::vector<StreamRates> steps;
  for (int i = 0; i < 100; ++i)
    if (const auto rates = ladder_.report(still())) steps.push_back(*rates);
  ASSERT_GT(steps.size(), 1u);
  EXPECT_EQ(steps.back(), (StreamRates{60, 5'600'000}));
  EXPECT_EQ(seconds_to_step(20), 1) << "as soon as the stream uses them, they rise further";
}

TEST_F(LadderTest, RatesDoNotRiseWhileAStillScreenIsSentAtFullPace) {
  for (int i = 0; i < 100; ++i) {
    LadderReport report = still();
    report.full_pace = true;
    const auto rates = ladder_.report(report);
    EXPECT_TRUE(!rates || rates->bitrate == 340'000) << i;
  }
}

TEST_F(LadderTest, RatesOfAStillDesktopStayIfItsKeyFramesAreSlow) {
  for (int i = 0; i < 100; ++i) {
    LadderReport report = still();
    report.viewers[0].pictures.worst = 90ms;
    EXPECT_FALSE(ladder_.report(report)) << i;
  }
}

TEST_F(LadderTest, RatesDoNotRiseWithin20SecondsAfterALateReport) {
  EXPECT_FALSE(ladder_.report(late(340'000)));
  EXPECT_EQ(seconds_to_step(100), 20);
}

TEST_F(LadderTest, RatesDoNotRiseWhileNobodySees) {
  for (int i = 0; i < 20; ++i) {
    LadderReport report = in_time();
    report.full_pace = true;
    if (i < 10) report.bytes = 3000;
    if (i >= 10) report.viewers.clear();
    EXPECT_FALSE(ladder_.report(report)) << i;
  }
}

TEST_F(LadderTest, EachFailedStepUpIsRepeatedAfterALongerTime) {
  begin(1'100'000);
  (void)seconds_to_step(20);
  const StreamRates failed = ladder_.asked();
  ASSERT_GT(failed.bitrate, 1'100'000);
  for (const int wait : {60, 120, 240, 480, 600, 600}) {
    ASSERT_FALSE(ladder_.report(in_time()));
    ASSERT_TRUE(lower(600'000));
    const auto since = now_;
    while (ladder_.asked().bitrate < failed.bitrate && now_ - since < 700s)
      (void)seconds_to_step(1);
    EXPECT_GE(now_ - since, std::chrono::seconds(wait));
    EXPECT_LE(now_ - since, std::chrono::seconds(wait + 10));
  }
}

TEST_F(LadderTest, StepUpThatHeldForAMinuteIsNotAFailedOne) {
  begin(1'100'000);
  (void)seconds_to_step(20);
  const StreamRates held = ladder_.asked();
  for (int i = 0; i < 61; ++i)
    (void)ladder_.report(still());
  ASSERT_TRUE(lower(600'000));
  const auto since = now_;
  while (ladder_.asked().bitrate < held.bitrate && now_ - since < 700s)
    (void)seconds_to_step(1);
  EXPECT_LE(now_ - since, 40s);
}

}  // namespace
}  // namespace vlk::relay
