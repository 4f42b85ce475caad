// The states of a session, and what the browser, the machine and the audit trail receive when it changes.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using enum SessionState;
using enum SessionEvent;

TEST(SessionStates, EachEventInEachStateLeadsToTheExpectedState) {
  const struct {
    SessionState from;
    SessionEvent event;
    std::optional<SessionState> to;
  } rows[] = {
      {Asked, Accept, Accepted}, {Asked, Reject, Ended},   {Asked, Drop, {}},      {Asked, Resume, {}},
      {Asked, End, Ended},       {Accepted, Accept, {}},   {Accepted, Reject, {}}, {Accepted, Drop, Held},
      {Accepted, Resume, {}},    {Accepted, End, Ended},   {Held, Accept, {}},     {Held, Reject, {}},
      {Held, Drop, {}},          {Held, Resume, Accepted}, {Held, End, Ended},     {Ended, Accept, {}},
      {Ended, Reject, {}},       {Ended, Drop, {}},        {Ended, Resume, {}},    {Ended, End, {}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(next_state(row.from, row.event), row.to)
        << static_cast<int>(row.from) << ", " << static_cast<int>(row.event);
}

class SessionsTest : public PartsTest {
 protected:
  SessionsTest() : agent_(log_in("a")), browser_(browse("ada")) {}

  Lines to_browser() { return sent_but_lists(*browser_->channel); }
  Lines to_agent() { return sent(*agent_->channel); }
  std::string state_message(const std::string& state, const std::string& reason = {}) const {
    Json message = {{"type", "session"}, {"session", number_}, {"agent", "a"}, {"state", state}};
    if (!reason.empty()) message["reason"] = reason;
    return message.dump();
  }
  std::string number() const { return std::to_string(number_); }
  std::string ended(const std::string& reason) const {
    return "session.ended/" + number() + R"( {"reason":")" + reason + R"(","seconds":0})";
  }

  const Agent agent_;
  const Console browser_;
  std::uint32_t number_ = 0;
};

TEST_F(SessionsTest, SessionRequestIsSentToTheMachineAndItsAcceptanceToTheBrowser) {
  number_ = ask(browser_, agent_);
  EXPECT_EQ(to_agent(), (Lines{"65/" + number() + R"( {"rep_name":"ada"})"}));
  parts_->sessions.accept(*agent_, number_);
  const Lines accepted_line = to_browser();
  ASSERT_EQ(accepted_line.size(), 1u);
  Json answer = Json::parse(accepted_line.front());
  EXPECT_EQ(answer["rights"].size(), 7u) << "an administrator has all rights";
  answer.erase("rights");
  EXPECT_EQ(answer.dump(), state_message("accepted"));
  EXPECT_EQ(to_agent(), Lines{});
  EXPECT_EQ(audited(), (Lines{"session.asked/" + number() + R"( {"name":"name of a"})",
                              "session.answered/" + number() + R"( {"answer":"accepted"})"}));
}

TEST_F(SessionsTest, RepeatedAcceptanceHasNoEffect) {
  number_ = accepted(browser_, agent_);
  parts_->sessions.accept(*agent_, number_);
  EXPECT_EQ(to_browser(), Lines{});
  EXPECT_EQ(audited().size(), 2u);
}

TEST_F(SessionsTest, RejectionEndsTheSessionWithoutASessionEndMessageToTheMachine) {
  number_ = ask(browser_, agent_);
  (void)to_agent();
  parts_->sessions.reject(*agent_, number_);
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "declined")}));
  EXPECT_EQ(to_agent(), Lines{});
  EXPECT_EQ(parts_->sessions.find(number_), nullptr);
  EXPECT_EQ(audited().back(), ended("declined"));
}

TEST_F(SessionsTest, RejectionOfAnAcceptedSessionIsIgnored) {
  number_ = accepted(browser_, agent_);
  parts_->sessions.reject(*agent_, number_);
  EXPECT_TRUE(parts_->sessions.find(number_)->accepted());
  EXPECT_EQ(to_browser(), Lines{});
}

TEST_F(SessionsTest, AnswersFromAnotherMachineAreIgnored) {
  const auto other = log_in("b");
  number_ = ask(browser_, agent_);
  parts_->sessions.accept(*other, number_);
  parts_->sessions.reject(*other, number_);
  parts_->sessions.accept(*agent_, number_ + 1);
  EXPECT_EQ(parts_->sessions.find(number_)->state, Asked);
  EXPECT_EQ(to_browser(), Lines{});
}

TEST_F(SessionsTest, ClosingASessionInformsBrowserAndMachineAndDropsQueuedFrames) {
  number_ = accepted(browser_, agent_);
  browser_->channel->send_text("a frame that waits", number_);
  parts_->sessions.close(*browser_, number_);
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "closed")}));
  EXPECT_EQ(to_agent(), (Lines{"70/" + number() + " {}"}));
  EXPECT_EQ(audited().back(), ended("closed"));
}

TEST_F(SessionsTest, AnotherBrowserCannotCloseASession) {
  number_ = accepted(browser_, agent_);
  const auto other = browse("ben");
  parts_->sessions.close(*other, number_);
  EXPECT_NE(parts_->sessions.find(number_), nullptr);
  EXPECT_EQ(sent_but_lists(*other->channel),
            (Lines{R"({"message":"There is no such session.","type":"error"})"}));
}

TEST_F(SessionsTest, ErrorMessageForARefusedRequestContainsAnErrorCode) {
  parts_->machines.remove_connection(log_in("offline"));
  const auto other = browse("ada");
  accepted(other, agent_);
  for (const auto& [id, code] :
       std::map<std::string, std::string>{{"unknown", "unknown"}, {"offline", "offline"}, {"a", "in-use"}}) {
    parts_->sessions.open(browser_, id);
    const Lines lines = to_browser();
    ASSERT_EQ(lines.size(), 1u) << id;
    const Json error = Json::parse(lines[0]);
    EXPECT_EQ(error["type"], "error");
    EXPECT_EQ(error["agent"], id);
    EXPECT_EQ(error["code"], code);
    EXPECT_EQ(error.value("representative", ""), code == "in-use" ? "ada" : "");
  }
}

TEST_F(SessionsTest, RequestBeyondTheLimitOfSessionsPerLoginIsRefused) {
  limits_.sessions_per_login = 2;
  accepted(browser_, agent_);
  accepted(browser_, log_in("b"));
  parts_->sessions.open(browser_, log_in("c")->id);
  EXPECT_EQ(Json::parse(to_browser().at(0))["code"], "too-many");
}

TEST_F(SessionsTest, BrowserReceivesASessionEndWhenItsMachineDisconnects) {
  number_ = accepted(browser_, agent_);
  parts_->sessions.end_all_of(*agent_, "agent-gone");
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "agent-gone")}));
  EXPECT_EQ(to_agent(), Lines{});
}

TEST_F(SessionsTest, EndMessagesOfOpenUploadsAreSentBeforeTheSessionEnd) {
  number_ = accepted(browser_, agent_);
  const std::string upload = std::to_string(parts_->transfers.give(number_));
  Bytes begin = envelope_of(Msg::UploadBegin, number_, R"({"transfer_id":)" + upload + R"(,"path":"a"})");
  (void)parts_->router.route_from_browser(*browser_, begin);
  parts_->sessions.close(*browser_, number_);
  EXPECT_EQ(to_agent(),
            (Lines{"101/" + number() + R"( {"transfer_id":)" + upload + "}", "70/" + number() + " {}"}));
  EXPECT_EQ(parts_->transfers.owed("a", Clock::now()).size(), 1u)
      << "owed until the machine answers a later heartbeat";
}

TEST_F(SessionsTest, UnansweredRequestEndsAfterTheTimeLimitAndAnAcceptedSessionDoesNot) {
  number_ = ask(browser_, agent_);
  const auto answered = accepted(browse("ben"), log_in("b"));
  const auto asked = parts_->sessions.find(number_)->asked;
  parts_->sessions.tick(asked + limits_.consent - std::chrono::milliseconds(1));
  EXPECT_NE(parts_->sessions.find(number_), nullptr);
  parts_->sessions.tick(asked + 2 * limits_.consent);
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "no-answer")}));
  EXPECT_NE(parts_->sessions.find(answered), nullptr);
}

TEST_F(SessionsTest, SessionWhoseRowCannotBeWrittenEnds) {
  number_ = accepted(browser_, agent_);
  settle();
  break_audit_trail();
  const std::uint32_t other = accepted(browser_, log_in("b"));
  settle();
  EXPECT_NE(parts_->sessions.find(number_), nullptr) << "its rows are written";
  EXPECT_EQ(parts_->sessions.find(other), nullptr);
  const Lines lines = to_browser();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines[0])["reason"], "no-evidence");
  EXPECT_TRUE(logged("trail row \"session.asked\" is lost: "));
}

TEST_F(SessionsTest, RoundTripIsReportedOnlyForAnAcceptedSession) {
  const auto start = Clock::now();
  (void)agent_->heartbeats.returned(agent_->heartbeats.send(start), start + std::chrono::milliseconds(40));
  number_ = ask(browser_, agent_);
  EXPECT_EQ(parts_->sessions.round_trip(*browser_), std::nullopt);
  parts_->sessions.accept(*agent_, number_);
  EXPECT_EQ(parts_->sessions.round_trip(*browser_), 40);
}

TEST_F(SessionsTest, SessionNumbersSkipZeroAndTheTagOfTheMachineList) {
  Sessions sessions(parts_->people, parts_->logins, parts_->machines, parts_->browsers, parts_->transfers,
                    parts_->downloads, parts_->uploads, parts_->pressed, parts_->audit, parts_->clips, log_,
                    limits_, kListTag - 1);
  sessions.open(browser_, "a");
  EXPECT_NE(sessions.find(1), nullptr);
}

TEST_F(SessionsTest, CutOfItsOwnSessionClosesTheMachinesConnection) {
  number_ = accepted(browser_, agent_);
  parts_->sessions.cut(*browser_, number_);
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "agent-gone")}));
  EXPECT_TRUE(agent_->channel->is_cut());
  EXPECT_EQ(agent_->channel->end_reason(), "closed at the request of ada");
  EXPECT_EQ(parts_->machines.connection("a"), nullptr) << "a closed connection cannot serve a session";
  const Lines rows = audited();
  EXPECT_EQ((Lines{rows.end() - 2, rows.end()}),
            (Lines{"session.cut/" + number() + " {}", ended("agent-gone")}));
}

TEST_F(SessionsTest, CutOfAnUnknownAForeignOrAnUnacceptedSessionIsRefused) {
  const auto refusal = [&](const Console& console, std::uint32_t session) {
    (void)sent(*console->channel);
    parts_->sessions.cut(*console, session);
    const Lines lines = sent_but_lists(*console->channel);
    return lines.size() == 1 ? Json::parse(lines[0]).value("message", "") : "";
  };
  EXPECT_EQ(refusal(browser_, 12345), "There is no such session.");
  number_ = ask(browser_, agent_);
  EXPECT_EQ(refusal(browser_, number_), "The session has not been accepted.");
  parts_->sessions.accept(*agent_, number_);
  EXPECT_EQ(refusal(browse("ben"), number_), "There is no such session.");
  EXPECT_FALSE(agent_->channel->closing());
  EXPECT_NE(parts_->sessions.find(number_), nullptr);
}

TEST_F(SessionsTest, CutsOfOneMachineAreLimited) {
  for (std::size_t i = 0; i < limits_.cuts_per_machine; ++i)
    parts_->sessions.cut(*browser_, accepted(browser_, log_in("a")));
  const Agent again = log_in("a");
  number_ = accepted(browser_, again);
  parts_->sessions.cut(*browser_, number_);
  EXPECT_FALSE(again->channel->closing());
  EXPECT_EQ(Json::parse(to_browser().at(0))["code"], "too-many");
  const Agent other = log_in("b");
  parts_->sessions.cut(*browser_, accepted(browser_, other));
  EXPECT_TRUE(other->channel->is_cut()) << "another machine has its own limit";
}

}  // namespace
}  // namespace vlk::relay
