// What a representative needs to open a session: the right to see, a step-up, a reason.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class OpeningTest : public PartsTest {
 protected:
  OpeningTest() : ada_(person("ada", Role::Representative)), agent_(log_in("a")), browser_(browse("ada")) {
    give_rights(ada_, kSee);
    (void)sent(*browser_->channel);
  }

  // The code of the error that answers the request, or the state of the new session.
  std::string open(const std::string& reason = {}) {
    parts_->sessions.open(browser_, "a", reason);
    const Lines lines = sent_but_lists(*browser_->channel);
    if (lines.size() != 1) return "no answer";
    const Json answer = Json::parse(lines.front());
    return answer.value(answer.contains("code") ? "code" : "state", "");
  }
  void set_group(bool step_up, bool ask_reason) {
    People::Contents all = parts_->people.all();
    all.groups = {{kFirstGroup, "Machines", step_up, ask_reason}};
    parts_->people.replace(all);
  }

  PersonId ada_;
  Agent agent_;
  Console browser_;
};

TEST_F(OpeningTest, RightToSeeIsEnoughForASession) {
  EXPECT_EQ(open(), "waiting");
}

TEST_F(OpeningTest, MachineThatThePersonMayNotSeeCountsAsUnknown) {
  give_rights(ada_, kAllRights & ~kSee);
  EXPECT_EQ(open(), "unknown");
  EXPECT_TRUE(sent(*agent_->channel).empty());
}

TEST_F(OpeningTest, AuditorMayOpenNoSession) {
  person("ada", Role::Auditor);
  give_rights(ada_, kAllRights);
  EXPECT_EQ(open(), "unknown");
}

TEST_F(OpeningTest, GroupCanAskForAStepUpBeforeEachSession) {
  set_group(true, false);
  EXPECT_EQ(open(), "step-up");
  LoginRow login;
  login.token_hash = browser_->login;
  login.person = ada_;
  login.expires_at = wall_seconds() + 1000;
  parts_->logins.add(login);
  EXPECT_EQ(open(), "step-up");
  parts_->logins.step_up(browser_->login, wall_seconds(), login.expires_at);
  EXPECT_EQ(open(), "waiting");
}

TEST_F(OpeningTest, GroupCanAskForAReason) {
  set_group(false, true);
  EXPECT_EQ(open(), "reason");
  EXPECT_EQ(open("   "), "reason");
  EXPECT_EQ(open("ticket 7"), "waiting");
  EXPECT_EQ(parts_->sessions.all().begin()->second.reason, "ticket 7");
}

TEST_F(OpeningTest, AcceptedSessionSaysWhichRightsItHas) {
  give_rights(ada_, kSee | kRestart);
  ASSERT_EQ(open(), "waiting");
  parts_->sessions.accept(*agent_, parts_->sessions.all().begin()->first);
  EXPECT_EQ(Json::parse(sent_but_lists(*browser_->channel).front())["rights"], (Json{"see", "restart"}));
}

TEST_F(OpeningTest, AdministratorEndsAnybodysSession) {
  ASSERT_EQ(open(), "waiting");
  EXPECT_TRUE(parts_->sessions.end_for_administrator(parts_->sessions.all().begin()->first, "root"));
  EXPECT_EQ(Json::parse(sent_but_lists(*browser_->channel).front()).value("reason", ""),
            "ended-by-administrator");
  EXPECT_FALSE(parts_->sessions.end_for_administrator(1, "root"));
}

}  // namespace
}  // namespace vlk::relay
