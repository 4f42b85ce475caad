// Sessions whose browser disconnects, and their return to a browser with the same log-in.
#include "relay/session/parts_fixture.h"
#include "relay/wire/console_messages.h"

namespace vlk::relay {
namespace {

class ReturningTest : public PartsTest {
 protected:
  ReturningTest() : agent_(log_in("a")), browser_(browse("ada")) {}

  // The browser disconnects.
  void drop(const Console& console, Clock::time_point when = Clock::now()) {
    console->channel->cut("gone");
    parts_->sessions.hold_all_of(*console, when);
    parts_->browsers.remove(console);
  }
  // A browser of the same person; with the log-in of the first one, unless another is given.
  Console another(const std::string& login = "ada") {
    const Console console = browse("ada");
    console->login = Bytes(login.begin(), login.end());
    (void)sent(*console->channel);
    return console;
  }
  Json resume(const Console& console, std::uint32_t session) {
    parts_->sessions.resume(console, session);
    const Lines lines = sent_but_lists(*console->channel);
    return lines.empty() ? Json() : Json::parse(lines.front());
  }
  SessionState state(std::uint32_t session) const {
    const Session* found = parts_->sessions.find(session);
    return found ? found->state : SessionState::Ended;
  }
  Lines to_agent() { return sent(*agent_->channel); }
  void show(PictureKind kind, const std::string& content) {
    const Msg type = kind == PictureKind::Settings ? Msg::StreamConfig : Msg::StreamFrame;
    agent_->recent.add(std::make_shared<const Bytes>(envelope_of(type, 0, content)), kind,
                       parts_->recent_pictures);
  }
  Route from_agent(Msg type, std::uint32_t session) {
    Bytes message = envelope_of(type, session, std::string(20, 'x'));
    return parts_->router.route_from_agent(*agent_, message);
  }
  void input(std::uint32_t session, const std::string& payload) {
    Bytes message = envelope_of(Msg::InputEvent, session, payload);
    (void)parts_->router.route_from_browser(*browser_, message);
  }

  const Agent agent_;
  const Console browser_;
};

TEST_F(ReturningTest, SessionOfABrowserThatDisconnectsIsHeldAndTheMachineIsNotTold) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  EXPECT_EQ(state(session), SessionState::Held);
  EXPECT_EQ(to_agent(), Lines{});
  EXPECT_EQ(Json::parse(parts_->machines.entry("a"))["representative"], "ada");
  EXPECT_EQ(audited().back(), "session.held/" + std::to_string(session) + " {}");
}

TEST_F(ReturningTest, BrowserWithTheSameLoginResumesTheSession) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  const Console back = another();
  const Json answer = resume(back, session);
  EXPECT_EQ(answer["state"], "accepted");
  EXPECT_EQ(answer["agent"], "a");
  EXPECT_EQ(answer["resumed"], true);
  EXPECT_EQ(answer["streaming"], false);
  EXPECT_EQ(answer["rights"].size(), 7u);
  EXPECT_EQ(state(session), SessionState::Accepted);
  EXPECT_EQ(to_agent(), Lines{}) << "nothing is asked again";
  EXPECT_EQ(audited().back(), "session.resumed/" + std::to_string(session) + R"( {"seconds":0})");
  EXPECT_EQ(from_agent(Msg::Thumbnail, session).to, back->channel);
}

TEST_F(ReturningTest, ChoicesOfTheConsoleComeBackWithTheSession) {
  const std::uint32_t session = accepted(browser_, agent_);
  parts_->sessions.keep_choices(*browser_, session, R"({"monitor":1})");
  drop(browser_);
  parts_->sessions.keep_choices(*browser_, session + 1, R"({"monitor":2})");
  parts_->sessions.keep_choices(*another(), session, R"({"monitor":3})");
  EXPECT_EQ(resume(another(), session)["choices"], Json({{"monitor", 1}}));
}

TEST_F(ReturningTest, OtherLoginsCannotResumeASession) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  for (const Console& other : {another("another log-in of ada"), browse("ben")}) {
    (void)sent(*other->channel);
    const Json answer = resume(other, session);
    EXPECT_EQ(answer["state"], "ended");
    EXPECT_EQ(answer["reason"], "gone");
    EXPECT_EQ(answer["agent"], "") << "a session's machine is no one else's business";
  }
  EXPECT_EQ(state(session), SessionState::Held);
}

TEST_F(ReturningTest, SessionMovesFromABrowserThatIsStillConnected) {
  const std::uint32_t session = accepted(browser_, agent_);
  browser_->channel->send_text("a frame that waits", session);
  const Console back = another();
  EXPECT_EQ(resume(back, session)["state"], "accepted");
  const Lines lines = sent_but_lists(*browser_->channel);
  ASSERT_EQ(lines.size(), 1u) << "frames that wait are dropped";
  EXPECT_EQ(Json::parse(lines[0])["reason"], "moved");
  drop(browser_);
  EXPECT_EQ(state(session), SessionState::Accepted) << "the end of the first connection has no effect";
  EXPECT_EQ(resume(back, session)["type"], "error") << "it has the session already";
}

TEST_F(ReturningTest, MessagesOfAHeldSessionReachNobodyExceptPicturesWhichAreKept) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  EXPECT_EQ(from_agent(Msg::Thumbnail, session).kind, Route::Kind::Swallow);
  EXPECT_EQ(from_agent(Msg::ClipboardData, session).kind, Route::Kind::Swallow);
  const Route picture = from_agent(Msg::StreamFrame, session);
  EXPECT_EQ(picture.kind, Route::Kind::Forward);
  EXPECT_EQ(picture.to, nullptr);
  Bytes click = envelope_of(Msg::InputEvent, session, std::string("\1\2\1\1", 4));
  EXPECT_EQ(parts_->router.route_from_browser(*browser_, click).kind, Route::Kind::Refuse);
  EXPECT_EQ(parts_->router.route_from_browser(*another(), click).kind, Route::Kind::Refuse);
}

TEST_F(ReturningTest, RecentPicturesAreShownAtOnce) {
  const std::uint32_t session = accepted(browser_, agent_);
  Bytes start = envelope_of(Msg::StreamStart, session, "{}");
  EXPECT_EQ(parts_->router.route_from_browser(*browser_, start).kind, Route::Kind::Forward);
  show(PictureKind::Settings, "settings");
  show(PictureKind::Key, "key");
  show(PictureKind::Delta, "delta");
  drop(browser_);
  const Console back = another();
  parts_->sessions.resume(back, session);
  const Lines lines = sent_but_lists(*back->channel);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(Json::parse(lines[0])["streaming"], true);
  EXPECT_EQ(lines[3], "83/" + std::to_string(session) + " delta");
  EXPECT_EQ(to_agent(), Lines{});
}

TEST_F(ReturningTest, KeysAndButtonsThatWereDownAreReleased) {
  const std::uint32_t session = accepted(browser_, agent_);
  input(session, std::string("\1\2\1\1", 4));
  drop(browser_);
  EXPECT_EQ(to_agent(), (Lines{"86/" + std::to_string(session) + ' ' + std::string("\1\2\1\0", 4)}));
}

TEST_F(ReturningTest, KeysThatWereDownAreReleasedBeforeASessionEndsOrLosesItsRight) {
  const std::string down("\1\2\1\1", 4), up("\1\2\1\0", 4);
  std::uint32_t session = accepted(browser_, agent_);
  input(session, down);
  parts_->sessions.end_for_administrator(session, "admin");
  EXPECT_EQ(to_agent(),
            (Lines{"86/" + std::to_string(session) + ' ' + up, "70/" + std::to_string(session) + " {}"}));

  session = accepted(browser_, agent_);
  input(session, down);
  give_rights(browser_->person, kSee);
  person("ada", Role::Representative);
  parts_->sessions.refresh_rights();
  EXPECT_EQ(to_agent(), (Lines{"86/" + std::to_string(session) + ' ' + up}));
}

TEST_F(ReturningTest, StreamOfAHeldSessionStopsAfterAWhileAndTheSessionLater) {
  const std::uint32_t session = accepted(browser_, agent_);
  show(PictureKind::Settings, "settings");
  show(PictureKind::Key, "key");
  const auto gone = Clock::now();
  drop(browser_, gone);
  parts_->sessions.tick(gone + limits_.held_stream - std::chrono::milliseconds(1));
  EXPECT_EQ(to_agent(), Lines{});
  parts_->sessions.tick(gone + limits_.held_stream);
  parts_->sessions.tick(gone + limits_.held_stream);
  EXPECT_EQ(to_agent(), (Lines{"81/" + std::to_string(session) + " {}"}));
  EXPECT_FALSE(agent_->recent.complete());
  parts_->sessions.tick(gone + limits_.hold - std::chrono::milliseconds(1));
  EXPECT_EQ(state(session), SessionState::Held);
  parts_->sessions.tick(gone + limits_.hold);
  EXPECT_EQ(to_agent(), (Lines{"70/" + std::to_string(session) + " {}"}));
  const Json answer = resume(another(), session);
  EXPECT_EQ(answer["state"], "ended");
  EXPECT_EQ(answer["agent"], "a");
  EXPECT_EQ(answer["reason"], "browser-gone");
}

TEST_F(ReturningTest, WithoutATimeToHoldTheSessionEndsAtOnce) {
  limits_.hold = {};
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  EXPECT_EQ(state(session), SessionState::Ended);
  EXPECT_EQ(to_agent(), (Lines{"70/" + std::to_string(session) + " {}"}));
}

TEST_F(ReturningTest, QuestionGoesOnWhileTheBrowserIsAway) {
  const std::uint32_t session = ask(browser_, agent_);
  (void)to_agent();
  drop(browser_);
  EXPECT_EQ(state(session), SessionState::Asked);
  const Console back = another();
  const Json waiting = resume(back, session);
  EXPECT_EQ(waiting["state"], "waiting");
  EXPECT_EQ(waiting["seconds"], 30);
  drop(back);
  parts_->sessions.accept(*agent_, session);
  EXPECT_EQ(state(session), SessionState::Held);
  EXPECT_EQ(resume(another(), session)["state"], "accepted");
  EXPECT_EQ(to_agent(), Lines{});
}

TEST_F(ReturningTest, SessionThatEndedInTheMeantimeIsReportedWithItsReason) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  parts_->sessions.end_all_of(*agent_, "agent-gone");
  EXPECT_EQ(resume(another(), session)["reason"], "agent-gone");
  EXPECT_EQ(resume(another("other"), session)["reason"], "gone");
}

TEST_F(ReturningTest, RequestForAMachineWithAHeldSessionOfTheSameLoginResumesIt) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  const Console back = another();
  parts_->sessions.open(back, "a");
  EXPECT_EQ(Json::parse(sent_but_lists(*back->channel).at(0))["session"], session);
  EXPECT_EQ(to_agent(), Lines{});
}

TEST_F(ReturningTest, HeldSessionIsClosedByItsLoginOnly) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  parts_->sessions.close(*another("another log-in of ada"), session);
  EXPECT_EQ(state(session), SessionState::Held);
  parts_->sessions.close(*another(), session);
  EXPECT_EQ(state(session), SessionState::Ended);
  EXPECT_EQ(audited().back().find("session.ended/" + std::to_string(session) + R"( {"reason":"closed")"), 0u);
}

TEST_F(ReturningTest, SamePersonWithAnotherLoginAsksAgain) {
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  const Console back = another("another log-in of ada");
  parts_->sessions.open(back, "a");
  EXPECT_EQ(Json::parse(sent_but_lists(*back->channel).at(0))["state"], "waiting");
  EXPECT_EQ(state(session), SessionState::Ended);
}

TEST_F(ReturningTest, EndOfTheLoginEndsItsSessionsAlsoHeldOnes) {
  parts_->logins.add({.token_hash = browser_->login, .person = 1, .expires_at = wall_seconds() + 3600});
  const std::uint32_t session = accepted(browser_, agent_);
  const std::uint32_t other = accepted(browse("ben"), log_in("b"));
  drop(browser_);
  parts_->logins.end(browser_->login, "logged out");
  EXPECT_EQ(resume(another(), session)["reason"], "login-ended");
  EXPECT_EQ(state(session), SessionState::Ended);
  EXPECT_EQ(state(other), SessionState::Accepted);
}

TEST_F(ReturningTest, HeldSessionsCountForTheLimitOfTheLogin) {
  limits_.sessions_per_login = 1;
  accepted(browser_, agent_);
  drop(browser_);
  const Console back = another();
  log_in("b");
  parts_->sessions.open(back, "b");
  EXPECT_EQ(Json::parse(sent_but_lists(*back->channel).at(0))["code"], "too-many");
}

TEST_F(ReturningTest, ReturnsAreLimited) {
  limits_.resumes_per_machine = 2;
  restart();
  const Agent agent = log_in("a");
  const std::uint32_t session = accepted(browse("ada"), agent);
  EXPECT_EQ(resume(another(), session)["state"], "accepted");
  EXPECT_EQ(resume(another(), session)["state"], "accepted");
  EXPECT_EQ(resume(another(), session)["code"], "resumed-too-often");
}

TEST_F(ReturningTest, HeldSessionEndsWithTheRightToSee) {
  person("ada", Role::Representative);
  give_rights(browser_->person, kSee);
  const std::uint32_t session = accepted(browser_, agent_);
  drop(browser_);
  give_rights(browser_->person, kNoRights);
  parts_->sessions.refresh_rights();
  EXPECT_EQ(state(session), SessionState::Ended);
  EXPECT_EQ(resume(another(), session)["reason"], kNoRightCode);
}

}  // namespace
}  // namespace vlk::relay
