// Several representatives with one machine: who steers, what each may do, and the one stream.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

constexpr char kStart[] = R"({"monitor_id":1,"max_fps":30,"bitrate":1000})";

class ViewersTest : public PartsTest {
 protected:
  ViewersTest() : agent_(log_in("a")), ada_(browse("ada")), ben_(browse("ben")) {
    first_ = accepted(ada_, agent_);
    from_browser(ada_, Msg::StreamStart, first_, kStart);
    second_ = ask(ben_, agent_);
    (void)to_agent();
  }
  // The second session is accepted, and what it caused is read.
  void join() {
    parts_->sessions.accept(*agent_, second_);
    read_all();
  }
  void read_all() {
    for (const auto& channel : {agent_->channel, ada_->channel, ben_->channel})
      (void)sent(*channel);
  }
  Route from_browser(const Console& console, Msg type, std::uint32_t session, const std::string& payload) {
    Bytes message = envelope_of(type, session, payload);
    return parts_->router.route_from_browser(*console, message);
  }
  // Whether the machine's picture with this session's number is passed on.
  bool shows(std::uint32_t session) {
    Bytes message = envelope_of(Msg::StreamFrame, session, "12345678jpeg");
    return parts_->router.route_from_agent(*agent_, message).kind == Route::Kind::Forward;
  }
  Lines to_agent() { return sent(*agent_->channel); }
  Lines to(const Console& console) { return sent_but_lists(*console->channel); }
  // The last message with the viewers that the browser received.
  static Json viewers(const Console& console) {
    Json last;
    for (const std::string& line : sent(*console->channel)) {
      if (line.find(R"("type":"viewers")") != line.npos) last = Json::parse(line);
    }
    return last;
  }
  std::string start(std::uint32_t session) const { return "80/" + std::to_string(session) + " " + kStart; }
  std::string ended(std::uint32_t session) const { return "70/" + std::to_string(session) + " {}"; }
  Rights rights(std::uint32_t session) const { return parts_->sessions.find(session)->rights; }
  void set_four_eyes() {
    People::Contents all = parts_->people.all();
    all.groups.at(0).four_eyes = true;
    parts_->people.replace(std::move(all));
  }

  const Agent agent_;
  const Console ada_, ben_;
  std::uint32_t first_ = 0, second_ = 0;
};

constexpr Rights kWatching = kSee | kFilesUp | kFilesDown | kForget;

TEST_F(ViewersTest, SecondSessionWatchesTheStreamOfTheFirst) {
  agent_->recent.add(hold(envelope_of(Msg::StreamConfig, first_, "c"), {}), PictureKind::Settings,
                     parts_->recent_pictures);
  agent_->recent.add(hold(envelope_of(Msg::StreamFrame, first_, "f"), {}), PictureKind::Key,
                     parts_->recent_pictures);
  parts_->sessions.accept(*agent_, second_);
  EXPECT_EQ(to_agent(), (Lines{start(second_), start(first_)}));
  const Lines lines = to(ben_);
  ASSERT_EQ(lines.size(), 3u);
  const Json answer = Json::parse(lines[0]);
  EXPECT_EQ(answer["streaming"], true);
  EXPECT_EQ(answer["rights"], Json(right_names(kWatching)));
  EXPECT_EQ(answer["granted"], Json(right_names(kAllRights)));
  EXPECT_EQ(lines[1], "82/" + std::to_string(second_) + " c");
  EXPECT_EQ(lines[2], "83/" + std::to_string(second_) + " f");
  EXPECT_EQ(to(ada_), Lines{});
  EXPECT_TRUE(shows(first_));
  EXPECT_FALSE(shows(second_));
}

TEST_F(ViewersTest, SessionThatJoinsBeforeTheFirstPictureGetsTheSettings) {
  agent_->recent.add(hold(envelope_of(Msg::StreamConfig, first_, "c"), {}), PictureKind::Settings,
                     parts_->recent_pictures);
  parts_->sessions.accept(*agent_, second_);
  const Lines lines = to(ben_);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(Json::parse(lines[0])["streaming"], true);
  EXPECT_EQ(lines[1], "82/" + std::to_string(second_) + " c");
}

TEST_F(ViewersTest, OnlyTheSessionThatSteersControlsTheMachineAndItsStream) {
  join();
  EXPECT_EQ(rights(first_), kAllRights);
  EXPECT_EQ(rights(second_), kWatching);
  EXPECT_EQ(from_browser(ben_, Msg::InputEvent, second_, "x").kind, Route::Kind::Refuse);
  EXPECT_EQ(from_browser(ben_, Msg::ClipboardData, second_, "x").kind, Route::Kind::Refuse);
  EXPECT_EQ(from_browser(ben_, Msg::Reboot, second_, "").kind, Route::Kind::Refuse);
  for (const Msg type : {Msg::MonitorSelect, Msg::CodecSelect, Msg::CursorVisibility})
    EXPECT_EQ(from_browser(ben_, type, second_, "{}").kind, Route::Kind::Swallow);
  EXPECT_EQ(from_browser(ben_, Msg::StreamStart, second_, "{}").kind, Route::Kind::ForRelay);
  EXPECT_EQ(from_browser(ada_, Msg::InputEvent, first_, "x").kind, Route::Kind::Forward);
  EXPECT_TRUE(from_browser(ada_, Msg::MonitorSelect, first_, R"({"monitor_id":0})").stream_changed);
  parts_->sessions.report_stream(first_);
  EXPECT_EQ(viewers(ben_)["stream"]["monitor"], 0);
}

TEST_F(ViewersTest, SteeringIsAskedForAndHandedOver) {
  join();
  parts_->sessions.ask_to_steer(*ben_, second_);
  EXPECT_EQ(viewers(ada_)["viewers"][1]["asks"], true);
  EXPECT_EQ(rights(second_), kWatching);
  parts_->sessions.hand_over(*ben_, second_, second_);
  EXPECT_EQ(agent_->steering, first_) << "who asks does not decide";
  from_browser(ada_, Msg::InputEvent, first_, std::string("\1\2\1\1", 4));
  parts_->sessions.hand_over(*ada_, first_, second_);
  EXPECT_EQ(rights(first_), kWatching);
  EXPECT_EQ(rights(second_), kAllRights);
  const Lines lines = to_agent();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(0, 3), "86/") << "the button that was down is released";
  EXPECT_EQ(lines[1], start(second_)) << "the machine's clipboard goes to the session that starts the stream";
  const Json seen = viewers(ben_);
  EXPECT_EQ(seen["viewers"][1]["steers"], true);
  EXPECT_EQ(seen["viewers"][1]["asks"], false);
  EXPECT_EQ(audited().back(), "session.taken-over/" + std::to_string(second_) + R"( {"from":"ada"})");
}

TEST_F(ViewersTest, EachPersonMayChangeTheSteeringSoOftenAndNotMore) {
  join();
  for (std::size_t i = 0; i < limits_.changes_of_steering; i += 2) {
    parts_->sessions.hand_over(*ada_, first_, second_);
    EXPECT_EQ(agent_->steering, second_);
    parts_->sessions.take_over(*ada_, first_);
    EXPECT_EQ(agent_->steering, first_);
  }
  read_all();
  parts_->sessions.hand_over(*ada_, first_, second_);
  EXPECT_EQ(agent_->steering, first_);
  EXPECT_EQ(Json::parse(to(ada_).at(0))["code"], "steering-changed-too-often");
  parts_->sessions.take_over(*ben_, second_);
  EXPECT_EQ(agent_->steering, second_) << "another person's changes are counted apart";
}

TEST_F(ViewersTest, RefusedRequestToSteerIsNotRepeatedAtOnce) {
  join();
  parts_->sessions.ask_to_steer(*ben_, second_);
  parts_->sessions.refuse_steering(*ada_, first_, second_);
  EXPECT_FALSE(parts_->sessions.find(second_)->asks);
  parts_->sessions.ask_to_steer(*ben_, second_);
  EXPECT_FALSE(parts_->sessions.find(second_)->asks);
}

TEST_F(ViewersTest, StreamGoesOnWhenTheSessionThatLedItEnds) {
  join();
  parts_->sessions.close(*ada_, first_);
  EXPECT_EQ(to_agent(), (Lines{ended(first_), start(second_)}));
  EXPECT_TRUE(shows(second_));
  EXPECT_EQ(rights(second_), kWatching) << "nobody gets the control by surprise";
  parts_->sessions.ask_to_steer(*ben_, second_);
  EXPECT_EQ(rights(second_), kAllRights);
}

TEST_F(ViewersTest, WhoAskedSteersWhenTheSessionBeforeEnds) {
  join();
  parts_->sessions.ask_to_steer(*ben_, second_);
  parts_->sessions.close(*ada_, first_);
  EXPECT_EQ(rights(second_), kAllRights);
}

TEST_F(ViewersTest, FirstWhoAskedSteersEvenIfItsSessionIsNewer) {
  join();
  const Console eva = browse("eva");
  const std::uint32_t third = accepted(eva, agent_);
  parts_->sessions.ask_to_steer(*eva, third);
  parts_->sessions.ask_to_steer(*ben_, second_);
  parts_->sessions.ask_to_steer(*eva, third);
  parts_->sessions.close(*ada_, first_);
  EXPECT_EQ(agent_->steering, third);
}

TEST_F(ViewersTest, ChangedRightsWithoutEffectAreReported) {
  join();
  give_rights(ben_->person, kAllRights & ~kRestart);
  person("ben", Role::Representative);
  EXPECT_EQ(rights(second_), kWatching);
  const Lines lines = to(ben_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(Json::parse(lines.back())["granted"], Json(right_names(kAllRights & ~kRestart)));
}

TEST_F(ViewersTest, EndOfAWatchingSessionOrAQuestionStartsTheStreamAgain) {
  parts_->sessions.close(*ben_, second_);
  EXPECT_EQ(to_agent(), (Lines{ended(second_), start(first_)})) << "the question was withdrawn";
  parts_->sessions.reject(*agent_, second_);
  second_ = ask(ben_, agent_);
  join();
  parts_->sessions.close(*ben_, second_);
  EXPECT_EQ(to_agent(), (Lines{ended(second_), start(first_)}));
  EXPECT_EQ(rights(first_), kAllRights);
  second_ = ask(ben_, agent_);
  (void)to_agent();
  parts_->sessions.reject(*agent_, second_);
  EXPECT_EQ(to_agent(), Lines{}) << "an agent that refuses does not end its stream";
}

TEST_F(ViewersTest, StreamStopOfOneSessionDoesNotStopItForTheOthers) {
  join();
  const Route route = from_browser(ada_, Msg::StreamStop, first_, "{}");
  Sessions::send_orders(*agent_, route.then);
  EXPECT_EQ(to_agent(), (Lines{start(second_)}));
  EXPECT_FALSE(agent_->stream.watched_by(first_));
}

TEST_F(ViewersTest, AdministratorTakesTheSteeringAndARepresentativeDoesNot) {
  join();
  give_rights(ben_->person, kAllRights);
  person("ben", Role::Representative);
  parts_->sessions.take_over(*ben_, second_);
  EXPECT_EQ(agent_->steering, first_);
  person("ben", Role::Administrator);
  parts_->sessions.take_over(*ben_, second_);
  EXPECT_EQ(agent_->steering, second_);
}

TEST_F(ViewersTest, SteeringOfAnAbsentSessionIsFreeAndItsStreamGoesOnForTheOthers) {
  join();
  const auto now = Clock::now();
  parts_->sessions.hold_all_of(*ada_, now);
  EXPECT_EQ(viewers(ben_)["viewers"][0]["away"], true);
  parts_->sessions.tick(now + limits_.held_stream);
  EXPECT_EQ(to_agent(), Lines{});
  parts_->sessions.ask_to_steer(*ben_, second_);
  EXPECT_EQ(rights(second_), kAllRights);
  EXPECT_EQ(to_agent(), (Lines{start(second_)}));
}

TEST_F(ViewersTest, SessionAloneOnlySeesAMachineThatAsksForFourEyes) {
  set_four_eyes();
  parts_->sessions.refresh_rights();
  EXPECT_EQ(rights(first_), kSee | kForget);
  EXPECT_EQ(viewers(ada_)["four_eyes_missing"], true);
  join();
  EXPECT_EQ(rights(first_), kAllRights);
  EXPECT_EQ(rights(second_), kWatching);
  EXPECT_EQ(from_browser(ada_, Msg::InputEvent, first_, std::string("\1\2\1\1", 4)).kind,
            Route::Kind::Forward);
  parts_->sessions.hold_all_of(*ben_, Clock::now());
  EXPECT_EQ(rights(first_), kSee | kForget);
  EXPECT_EQ(to_agent().front().substr(0, 3), "86/");
  const Lines rows = audited();
  EXPECT_EQ(rows.back(), "session.four-eyes/" + std::to_string(second_) + R"( {"state":"missing"})");
  EXPECT_EQ(std::ranges::count(rows, "session.four-eyes/" + std::to_string(first_) + R"( {"state":"met"})"),
            1);
}

TEST_F(ViewersTest, KeyFramesAreRequestedOnceForAllSessions) {
  join();
  EXPECT_EQ(from_browser(ada_, Msg::KeyframeRequest, first_, "{}").kind, Route::Kind::Forward);
  EXPECT_EQ(from_browser(ben_, Msg::KeyframeRequest, second_, "{}").kind, Route::Kind::Swallow);
}

TEST_F(ViewersTest, SessionsOfAMachineAreLimited) {
  limits_.sessions_per_machine = 2;
  join();
  const Console eva = browse("eva");
  parts_->sessions.open(eva, "a");
  EXPECT_EQ(Json::parse(to(eva).at(0))["code"], "too-many");
}

}  // namespace
}  // namespace vlk::relay
