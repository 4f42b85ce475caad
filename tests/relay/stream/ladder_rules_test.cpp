// When the ladder does not move, which viewer decides, and what a person chooses.
#include "relay/stream/ladder_fixture.h"

namespace vlk::relay {
namespace {

class LadderRulesTest : public LadderTest {
 protected:
  static ViewerReport viewer(std::chrono::milliseconds age, bool steers = false) {
    return {.steers = steers, .pictures = {20, 50'000, 10'000, 100, age, age}};
  }
  // True if reports with these viewers lower the rates.
  bool lowers(const std::vector<ViewerReport>& viewers) {
    begin(5'600'000);
    for (int i = 0; i < 4; ++i) {
      LadderReport report = in_time();
      report.viewers = viewers;
      const auto rates = ladder_.report(report);
      if (rates && rates->bitrate < 5'600'000) return true;
    }
    return false;
  }
  // The rates after so many reports of an idle machine that sends unchanged pictures at full pace.
  StreamRates after_idle(int seconds) {
    for (int i = 0; i < seconds; ++i) {
      LadderReport report = still();
      report.full_pace = true;
      (void)ladder_.report(report);
    }
    return ladder_.asked();
  }
};

TEST_F(LadderRulesTest, RatesStayWhileNothingOfTheStreamArrives) {
  begin(5'600'000);
  for (int i = 1; i <= 60; ++i) {
    LadderReport report = late(0);
    report.echo = std::chrono::seconds(i);
    report.viewers[0].pictures = {};
    EXPECT_FALSE(ladder_.report(report)) << i;
  }
  EXPECT_TRUE(ladder_.late());
}

TEST_F(LadderRulesTest, WhatWaitedDuringAnInterruptionDoesNotCount) {
  begin(5'600'000);
  for (int i = 0; i < 20; ++i)
    (void)ladder_.report(still());
  LadderReport gap = late(0);
  gap.viewers[0].pictures = {};
  EXPECT_FALSE(ladder_.report(gap));
  for (int i = 0; i < 3; ++i)
    EXPECT_FALSE(ladder_.report(late(1'000'000))) << "what waited arrives";
  EXPECT_FALSE(ladder_.report(still()));
  EXPECT_TRUE(lower(1'000'000)) << "the line carries less than before";
}

TEST_F(LadderRulesTest, InterruptionsInARowDoNotHideAnOverloadedLine) {
  begin(18'000'000);
  std::optional<StreamRates> rates;
  for (int i = 0; i < 40 && !rates; ++i)
    rates = ladder_.report(late(i % 2 == 0 ? 0 : 400'000));
  EXPECT_TRUE(rates);
}

TEST_F(LadderRulesTest, RatesStayWhileFilesFillTheLine) {
  begin(5'600'000);
  for (int i = 0; i < 40; ++i) {
    LadderReport report = late(1'000'000);
    report.other_bytes = 100'000;
    EXPECT_FALSE(ladder_.report(report));
  }
  EXPECT_TRUE(lower(1'000'000));
}

TEST_F(LadderRulesTest, RepetitionOfOnePacketOnALongLineChangesNothing) {
  ladder_ = Ladder(now_, {.last = StreamRates{60, 5'600'000}, .round_trip = 600ms});
  for (int i = 0; i < 30; ++i) {
    LadderReport report = i % 5 < 3 ? late(1'000'000) : still();
    report.echo += 600ms;
    EXPECT_FALSE(ladder_.report(report)) << i;
  }
}

TEST_F(LadderRulesTest, HeartbeatsDecideIfNobodySees) {
  begin(5'600'000);
  LadderReport report = late(1'000'000);
  report.viewers.clear();
  EXPECT_FALSE(ladder_.report(report));
  report.now = now_ += 1s;
  EXPECT_EQ(ladder_.report(report), (StreamRates{20, 500'000}));
}

TEST_F(LadderRulesTest, SteeringViewerDecides) {
  EXPECT_FALSE(lowers({viewer(5ms, true), viewer(900ms), viewer(900ms), viewer(900ms)}));
  EXPECT_TRUE(lowers({viewer(5ms), viewer(5ms), viewer(900ms, true), viewer(5ms)}));
}

TEST_F(LadderRulesTest, MedianViewerDecidesIfNobodySteers) {
  EXPECT_FALSE(lowers({viewer(900ms), viewer(5ms), viewer(6ms), viewer(900ms), viewer(7ms)}));
  EXPECT_TRUE(lowers({viewer(900ms), viewer(900ms), viewer(5ms)}));
  EXPECT_FALSE(lowers({viewer(900ms), viewer(5ms)})) << "the better one of two";
}

TEST_F(LadderRulesTest, ViewerWhoSeesNothingDoesNotDecide) {
  const ViewerReport stalled{.steers = true, .pictures = {}, .dropped = 100};
  EXPECT_FALSE(lowers({stalled, viewer(5ms)}));
  EXPECT_TRUE(lowers({stalled, viewer(900ms)}));
}

TEST_F(LadderRulesTest, MachineThatSendsUnchangedPicturesIsAskedForFewerWhileNobodyTypes) {
  begin(5'600'000);
  EXPECT_EQ(after_idle(19).fps, 60);
  EXPECT_EQ(after_idle(1), (StreamRates{15, 5'600'000}));
  LadderReport report = still();
  report.full_pace = true;
  report.input = true;
  EXPECT_FALSE(ladder_.report(report)) << "a stream that has just started";
  report.now = now_ += 1s;
  EXPECT_EQ(ladder_.report(report), (StreamRates{60, 5'600'000}));
}

TEST_F(LadderRulesTest, MachineThatSendsOnlyChangesKeepsItsRates) {
  begin(5'600'000);
  for (int i = 0; i < 60; ++i)
    EXPECT_FALSE(ladder_.report(still()));
}

TEST_F(LadderRulesTest, PresetsLimitTheRates) {
  begin(50'000'000, Preset::Sharp);
  EXPECT_EQ(ladder_.asked(), (StreamRates{30, 18'000'000}));
  begin(50'000'000, Preset::Balanced);
  EXPECT_EQ(ladder_.asked(), (StreamRates{60, 5'600'000}));
  begin(50'000'000, Preset::Saving);
  EXPECT_EQ(ladder_.asked(), (StreamRates{15, 1'100'000}));
  EXPECT_EQ(seconds_to_step(60), 60) << "the rates do not rise above the preset's";
  EXPECT_TRUE(lower(500'000)) << "but follow the line";
}

TEST_F(LadderRulesTest, RatesByHandNeverMoveAndStayWithinTheLimits) {
  ladder_ = Ladder(now_, {.preset = Preset::ByHand, .by_hand = {25, 2'000'000}, .round_trip = 50ms});
  EXPECT_EQ(ladder_.asked(), (StreamRates{25, 2'000'000}));
  for (int i = 0; i < 30; ++i)
    EXPECT_FALSE(ladder_.report(late(500'000)));
  EXPECT_EQ(seconds_to_step(60), 60);
  EXPECT_EQ(ladder_.choose(Preset::Automatic, {}, now_), (StreamRates{15, 340'000})) << "as before";
  EXPECT_EQ(ladder_.choose(Preset::ByHand, {0, 0}, now_), kLeastRates);
  EXPECT_EQ(ladder_.choose(Preset::ByHand, {5000, 2'000'000'000}, now_), kMostRates);
}

TEST_F(LadderRulesTest, ChoiceOfAPresetTakesEffectAtOnceIfItChangesTheRates) {
  begin(8'400'000);
  EXPECT_EQ(ladder_.choose(Preset::Balanced, {}, now_), (StreamRates{60, 5'600'000}));
  EXPECT_FALSE(ladder_.choose(Preset::Automatic, {}, now_));
  EXPECT_EQ(ladder_.choose(Preset::ByHand, {30, 1'000'000}, now_), (StreamRates{30, 1'000'000}));
  EXPECT_EQ(ladder_.choose(Preset::Automatic, {}, now_), (StreamRates{60, 5'600'000}));
}

TEST_F(LadderRulesTest, LatenessOfAnEarlierStreamDoesNotCount) {
  begin(5'600'000);
  EXPECT_FALSE(ladder_.report(late(1'000'000)));
  ladder_.started(now_);
  now_ += 1s;
  EXPECT_FALSE(ladder_.report(late(1'000'000)));
  EXPECT_TRUE(ladder_.report(late(1'000'000)));
}

TEST_F(LadderRulesTest, KeyFramesOfAnEarlierStreamDoNotCount) {
  begin(5'600'000);
  for (int i = 0; i < 6; ++i) {
    if (i == 3) ladder_.started(now_);
    LadderReport report = in_time();
    report.viewers[0].pictures.worst = 160ms;
    EXPECT_FALSE(ladder_.report(report)) << i;
  }
}

}  // namespace
}  // namespace vlk::relay
