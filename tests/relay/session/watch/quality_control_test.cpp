// The rates of a machine's stream, and the repair of a picture that stands still. The tests pass the time.
#include "relay/session/watch/quality_control.h"

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class QualityControlTest : public PartsTest {
 protected:
  QualityControlTest() { (void)to_agent(); }

  Lines to_agent() { return sent(*agent_->channel); }
  void choose(const Json& message, const Console& console, std::uint32_t session) {
    const auto choice = quality_choice(message);
    ASSERT_TRUE(choice);
    parts_->quality.choose(*console, session, *choice);
  }
  void choose(const std::string& preset) { choose({{"preset", preset}}, browser_, session_); }
  // The browser starts the stream; returns the rates that the machine is asked for.
  Json start() {
    Bytes message = envelope_of(Msg::StreamStart, session_, R"({"monitor_id":2,"max_fps":25,"bitrate":5})");
    EXPECT_EQ(parts_->router.route_from_browser(*browser_, message).kind, Route::Kind::Forward);
    return agent_json(message);
  }
  // Lets time pass in ticks of 250 ms, with a picture each second.
  void pass(milliseconds time) {
    for (const auto end = at_ + time; at_ < end;) {
      at_ += milliseconds(250);
      if (input_) agent_->quality.input(start_ + at_, acts_);
      if (at_.count() % 1000 == 0) {
        agent_->times.add_bytes(20'000, 0);
        agent_->quality.picture(start_ + at_, static_cast<std::uint64_t>(1000 * at_.count()), Bytes(60));
      }
      parts_->quality.tick({agent_}, start_ + at_, at_.count() % 1000 == 0);
    }
  }
  // The rates of the StreamStarts that the relay has sent by itself.
  std::vector<Json> restarts() {
    std::vector<Json> found;
    const std::string begin = "80/" + std::to_string(session_) + " ";
    for (const std::string& line : to_agent()) {
      if (line.starts_with(begin)) found.push_back(Json::parse(line.substr(begin.size())));
      if (line.starts_with("84/")) ++key_frames_;
    }
    return found;
  }
  // An echo that is missing from now on shows a queue.
  void queue_up() {
    (void)agent_->heartbeats.returned(agent_->heartbeats.send(start_ + at_), start_ + at_ + milliseconds(40));
    (void)agent_->heartbeats.send(start_ + at_ + milliseconds(50));
  }

  const Clock::time_point start_ = Clock::now();
  milliseconds at_{};
  bool input_ = false;
  bool acts_ = true;
  int key_frames_ = 0;
  const Agent agent_ = log_in("a");
  const Console browser_ = browse("ada");
  const std::uint32_t session_ = accepted(browser_, agent_);
};

TEST_F(QualityControlTest, WithoutAChoiceTheStreamHasTheRatesOfItsStart) {
  EXPECT_EQ(start(), (Json{{"monitor_id", 2}, {"max_fps", 25}, {"bitrate", 5}}));
  queue_up();
  input_ = true;
  pass(seconds(20));
  EXPECT_TRUE(restarts().empty());
}

TEST_F(QualityControlTest, PresetReplacesTheRatesOfTheStart) {
  choose("automatic");
  EXPECT_EQ(start(), (Json{{"monitor_id", 2}, {"max_fps", 15}, {"bitrate", 340'000}}));
  EXPECT_EQ(agent_->stream.choices().bitrate, 340'000) << "also when the stream starts again for others";
}

TEST_F(QualityControlTest, RatesChosenByHandAreLimitedAndNeverChange) {
  choose({{"preset", "hand"}, {"max_fps", 1000}, {"bitrate", 3'000'000}}, browser_, session_);
  EXPECT_EQ(start(), (Json{{"monitor_id", 2}, {"max_fps", 60}, {"bitrate", 3'000'000}}));
  queue_up();
  pass(seconds(20));
  EXPECT_TRUE(restarts().empty());
}

TEST_F(QualityControlTest, QueueOfTheMachineLowersTheRatesAtMostEveryThreeSeconds) {
  choose("automatic");
  (void)start();
  queue_up();
  pass(seconds(5));
  const auto first = restarts();
  ASSERT_EQ(first.size(), 1u);
  EXPECT_LT(first[0]["bitrate"], 340'000);
  EXPECT_EQ(first[0]["monitor_id"], 2);
  EXPECT_EQ(agent_->quality.asked()->bitrate, first[0]["bitrate"]);
  EXPECT_TRUE(logged("the stream starts again (measured): "));
}

TEST_F(QualityControlTest, ChoiceOfSomebodyWhoOnlyWatchesIsIgnored) {
  choose("saving");
  (void)start();
  const auto other = browse("bo");
  const std::uint32_t watching = accepted(other, agent_);
  choose({{"preset", "sharp"}}, other, watching);
  EXPECT_EQ(agent_->quality.preset(), Preset::Saving);
  choose({{"preset", "sharp"}}, other, session_);
  EXPECT_EQ(agent_->quality.preset(), Preset::Saving) << "the session of another browser";
  choose("sharp");
  EXPECT_EQ(agent_->quality.preset(), Preset::Sharp);
}

TEST_F(QualityControlTest, PictureThatStandsStillUnderInputGetsAKeyFrameAndThenANewStream) {
  choose("automatic");
  const Json rates = start();
  pass(seconds(5));
  EXPECT_TRUE(restarts().empty());
  input_ = true;
  pass(milliseconds(2250));
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(key_frames_, 1);
  EXPECT_EQ(agent_->quality.state(), StillPicture::State::Still);
  pass(seconds(2));
  EXPECT_EQ(restarts(), std::vector<Json>{rates});
  EXPECT_EQ(agent_->quality.state(), StillPicture::State::StartedAgain);
  EXPECT_TRUE(logged("the stream starts again (the picture stood still): "));
}

TEST_F(QualityControlTest, PointerThatMovesOverAStillScreenIsNotFollowedByANewStream) {
  choose("automatic");
  (void)start();
  input_ = true;
  acts_ = false;
  pass(seconds(20));
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(key_frames_, 0);
}

TEST_F(QualityControlTest, PictureThatIsLateIsNotTakenForAStillOne) {
  choose({{"preset", "hand"}, {"max_fps", 30}, {"bitrate", 1'000'000}}, browser_, session_);
  (void)start();
  pass(seconds(5));
  queue_up();
  pass(seconds(1));
  input_ = true;
  pass(seconds(10));
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(key_frames_, 0);
}

TEST_F(QualityControlTest, NextStreamBeginsWithTheRatesOfTheLast) {
  choose("automatic");
  (void)start();
  queue_up();
  pass(seconds(5));
  const auto last = restarts();
  ASSERT_EQ(last.size(), 1u);
  Bytes stop = envelope_of(Msg::StreamStop, session_, "{}");
  (void)parts_->router.route_from_browser(*browser_, stop);
  pass(milliseconds(250));
  EXPECT_FALSE(agent_->quality.runs());
  EXPECT_EQ(start()["max_fps"], 25) << "nobody has chosen for this stream";
  parts_->quality.tick({agent_}, start_ + at_, true);
  (void)parts_->router.route_from_browser(*browser_, stop = envelope_of(Msg::StreamStop, session_, "{}"));
  choose("automatic");
  EXPECT_EQ(start()["bitrate"], last[0]["bitrate"]);
}

TEST_F(QualityControlTest, UnknownPresetIsNotAChoice) {
  EXPECT_FALSE(quality_choice({{"preset", "best"}}));
  EXPECT_FALSE(quality_choice({{"preset", 5}}));
  EXPECT_FALSE(quality_choice(Json::object()));
  const auto choice = quality_choice({{"preset", "hand"}, {"max_fps", -5}, {"bitrate", "much"}});
  ASSERT_TRUE(choice);
  EXPECT_EQ(choice->by_hand, kLeastRates);
}

}  // namespace
}  // namespace vlk::relay
