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
      {Asked, Accept, Accepted},     {Asked, Reject, Ended},        {Asked, End, Ended},
      {Accepted, Accept, {}},        {Accepted, Reject, {}},        {Accepted, End, Ended},
      {Ended, Accept, std::nullopt}, {Ended, Reject, std::nullopt}, {Ended, End, std::nullopt},
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

  const Agent agent_;
  const Console browser_;
  std::uint32_t number_ = 0;
};

TEST_F(SessionsTest, SessionRequestIsSentToTheMachineAndItsAcceptanceToTheBrowser) {
  number_ = ask(browser_, agent_);
  EXPECT_EQ(to_agent(), (Lines{"65/" + number() + R"( {"rep_name":"ada"})"}));
  parts_->sessions.accept(*agent_, number_);
  EXPECT_EQ(to_browser(), (Lines{state_message("accepted")}));
  EXPECT_EQ(to_agent(), Lines{});
  EXPECT_EQ(audited(), (Lines{"session-request: " + number(), "session-start: " + number()}));
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
  EXPECT_EQ(audited().back(), "session-end: " + number() + " declined");
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
  EXPECT_EQ(audited().back(), "session-end: " + number() + " closed");
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
  const auto other = browse("ben");
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
    EXPECT_EQ(error.value("representative", ""), code == "in-use" ? "ben" : "");
  }
}

TEST_F(SessionsTest, RequestBeyondTheLimitOfSessionsPerBrowserIsRefused) {
  limits_.sessions_per_browser = 2;
  accepted(browser_, agent_);
  accepted(browser_, log_in("b"));
  parts_->sessions.open(browser_, log_in("c")->id);
  EXPECT_EQ(Json::parse(to_browser().at(0))["code"], "too-many");
}

TEST_F(SessionsTest, MachineReceivesASessionEndWhenItsBrowserDisconnects) {
  number_ = accepted(browser_, agent_);
  parts_->sessions.end_all_of(*browser_, "browser-gone");
  EXPECT_EQ(to_agent(), (Lines{"70/" + number() + " {}"}));
  EXPECT_TRUE(parts_->sessions.representatives().empty());
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
  parts_->sessions.end_unanswered(asked + limits_.consent - std::chrono::milliseconds(1));
  EXPECT_NE(parts_->sessions.find(number_), nullptr);
  parts_->sessions.end_unanswered(asked + 2 * limits_.consent);
  EXPECT_EQ(to_browser(), (Lines{state_message("ended", "no-answer")}));
  EXPECT_NE(parts_->sessions.find(answered), nullptr);
}

TEST_F(SessionsTest, RoundTripIsReportedOnlyForAnAcceptedSession) {
  agent_->round_trip_ms = 40;
  number_ = ask(browser_, agent_);
  EXPECT_EQ(parts_->sessions.round_trip(*browser_), std::nullopt);
  parts_->sessions.accept(*agent_, number_);
  EXPECT_EQ(parts_->sessions.round_trip(*browser_), 40);
}

TEST_F(SessionsTest, SessionNumbersSkipZeroAndTheTagOfTheMachineList) {
  Sessions sessions(parts_->machines, parts_->browsers, parts_->transfers, parts_->audit, log_, limits_,
                    kListTag - 1);
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
            (Lines{"agent-cut: " + number(), "session-end: " + number() + " agent-gone"}));
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
