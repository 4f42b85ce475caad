// The reports about the way of the pictures. The tests pass the time to each call.
#include "relay/session/watch/measures.h"

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class MeasuresTest : public PartsTest {
 protected:
  MeasuresTest() { (void)sent(*browser_->channel); }

  void tick(Clock::duration after) { parts_->measures.tick(start_ + after); }
  bool report(const Json& report, Clock::duration after) {
    return parts_->measures.shown(*browser_, session_, Json::parse(report.dump()), start_ + after);
  }
  static Json of(std::int64_t at, const Json& picture) {
    return {{"at", at}, {"pictures", Json::array({picture})}};
  }
  // A picture arrives at the relay 20 ms after its capture, and is displayed 12 ms after its arrival in the
  // browser.
  void show(milliseconds captured, milliseconds line = milliseconds(30)) {
    const auto arrived = captured + milliseconds(20);
    const auto stamp = std::chrono::microseconds(captured).count();
    agent_->times.arrived(start_ + arrived, static_cast<std::uint64_t>(stamp), 100);
    const auto sent_at = arrived + line + milliseconds(12);
    EXPECT_TRUE(report(of(sent_at.count() + 7000, {stamp, 12, 4, 8}), sent_at + milliseconds(30)));
  }
  // The reports that the browser has got.
  std::vector<Json> reports() {
    std::vector<Json> found;
    for (const std::string& line : sent_but_lists(*browser_->channel)) {
      Json message = Json::parse(line, nullptr, false);
      if (message.is_object() && message["type"] == "stages") found.push_back(std::move(message));
    }
    return found;
  }

  const Clock::time_point start_ = Clock::now();
  const Agent agent_ = log_in("a");
  const Console browser_ = browse("ada");
  const std::uint32_t session_ = accepted(browser_, agent_);
};

TEST_F(MeasuresTest, BrowserThatReportsPicturesGetsTheStagesEachSecond) {
  (void)agent_->heartbeats.returned(agent_->heartbeats.send(start_), start_ + milliseconds(40));
  show(milliseconds(0));
  tick(seconds(1));
  const auto first = reports();
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0]["session"], session_);
  EXPECT_EQ(first[0]["pictures"], 1);
  EXPECT_EQ(first[0]["queue"], 0);
  EXPECT_EQ(first[0]["file"], false);
  const Json stages = {{"machine", 0.0},     {"to_relay", 20.0}, {"relay", 0.0},
                       {"to_browser", 30.0}, {"decoder", 4.0},   {"screen", 8.0}};
  EXPECT_EQ(first[0]["stages"], stages);
  tick(milliseconds(1999));
  EXPECT_TRUE(reports().empty());
  tick(seconds(2));
  EXPECT_EQ(reports().size(), 1u);
}

TEST_F(MeasuresTest, BrowserThatReportsNothingGetsNothing) {
  tick(seconds(1));
  EXPECT_TRUE(reports().empty());
  EXPECT_EQ(parts_->measures.of(session_), nullptr);
}

TEST_F(MeasuresTest, StagesOfAStillScreenAreKeptForFiveSeconds) {
  show(milliseconds(0));
  tick(seconds(1));
  tick(seconds(5));
  EXPECT_TRUE(reports().back()["stages"].is_object());
  tick(seconds(6));
  EXPECT_TRUE(reports().back()["stages"].is_null());
}

TEST_F(MeasuresTest, MissingEchoShowsTheQueueWhileNoPicturesArrive) {
  show(milliseconds(0));
  (void)agent_->heartbeats.returned(agent_->heartbeats.send(start_), start_ + milliseconds(40));
  (void)agent_->heartbeats.send(start_ + seconds(1));
  agent_->times.file_arrived(start_ + seconds(5));
  tick(seconds(6));
  const Json report = reports().back();
  EXPECT_EQ(report["queue"], 4960);
  EXPECT_EQ(report["file"], true);
}

TEST_F(MeasuresTest, PicturesShowTheQueueBeforeTheNextEcho) {
  show(milliseconds(0));
  agent_->times.arrived(start_ + milliseconds(3020), 1'000'000, 10);
  tick(milliseconds(3100));
  EXPECT_EQ(reports().back()["queue"], 2000);
}

TEST_F(MeasuresTest, WrittenAndDroppedPicturesAreCounted) {
  const auto picture = std::make_shared<const Bytes>(100);
  Channel& channel = *browser_->channel;
  ASSERT_TRUE(channel.send_picture(picture, session_, PictureKind::Complete));
  ASSERT_TRUE(channel.send_picture(picture, session_, PictureKind::Complete)) << "replaces the one before";
  show(milliseconds(0));
  tick(seconds(1));
  EXPECT_EQ(reports().back()["dropped"], 1);
}

TEST_F(MeasuresTest, ReportIsChecked) {
  const Json picture = {1, 2, 3, 4};
  EXPECT_FALSE(report({{"pictures", Json::array()}}, seconds(0))) << "without the time";
  EXPECT_FALSE(report({{"at", "7"}, {"pictures", Json::array()}}, seconds(0)));
  EXPECT_FALSE(report({{"at", -1}, {"pictures", Json::array()}}, seconds(0)));
  EXPECT_FALSE(report({{"at", 1e14}, {"pictures", Json::array()}}, seconds(0)));
  EXPECT_FALSE(report({{"at", 7}}, seconds(0)));
  EXPECT_FALSE(report({{"at", 7}, {"pictures", 5}}, seconds(0)));
  for (const Json& bad : {Json({1, 2, 3}), Json({1, 2, 3, 4, 5}), Json({-1, 2, 3, 4}), Json({1, -2, 3, 4}),
                          Json({1, 2, 3, 600'001}), Json({1, 2, "3", 4}), Json(3)})
    EXPECT_FALSE(report({{"at", 7}, {"pictures", Json::array({picture, bad})}}, seconds(0))) << bad.dump();
  EXPECT_FALSE(report({{"at", 7}, {"pictures", std::vector<Json>(61, picture)}}, seconds(0)));
  EXPECT_TRUE(report({{"at", 7}, {"pictures", std::vector<Json>(60, picture)}}, seconds(0)));
}

TEST_F(MeasuresTest, ReportsBeyondTenInASecondAreIgnored) {
  for (int i = 0; i < 12; ++i)
    agent_->times.arrived(start_, static_cast<std::uint64_t>(i), 10);
  for (int i = 0; i < 12; ++i)
    EXPECT_TRUE(report(of(7000 + i, {i, 0, 0, 0}), milliseconds(i)));
  tick(seconds(1));
  EXPECT_EQ(reports().back()["pictures"], 10);
}

TEST_F(MeasuresTest, ReportAboutTheSessionOfAnotherBrowserIsIgnored) {
  const auto other = browse("bo");
  agent_->times.arrived(start_, 5, 10);
  EXPECT_TRUE(parts_->measures.shown(*other, session_, Json::parse(of(7, {5, 0, 0, 0}).dump()), start_));
  tick(seconds(1));
  EXPECT_EQ(parts_->measures.of(session_), nullptr);
}

TEST_F(MeasuresTest, EndedSessionIsForgotten) {
  show(milliseconds(0));
  tick(seconds(1));
  ASSERT_NE(parts_->measures.of(session_), nullptr);
  parts_->sessions.close(*browser_, session_);
  tick(seconds(2));
  EXPECT_EQ(parts_->measures.of(session_), nullptr);
}

TEST_F(MeasuresTest, LogGetsTheStagesOnceAMinute) {
  const auto lines = [&] {
    std::size_t count = 0;
    const std::string text =
        ": pictures are shown 52 ms after their capture: machine 0, line to the relay 0, "
        "relay 0, line to the browser 40, decoder 4, screen 8";
    for (std::size_t at = log_text_.find(text); at != std::string::npos; at = log_text_.find(text, at + 1))
      ++count;
    return count;
  };
  // The way to the browser takes 50 ms and the way back 30 ms, of which half of the sum is measured.
  for (int second = 0; second < 61; ++second) {
    show(seconds(second), milliseconds(50));
    tick(seconds(second + 1));
  }
  EXPECT_EQ(lines(), 2u);
}

}  // namespace
}  // namespace vlk::relay
