// Log-ins in stages, and what administrators do with people, teams, groups and rights.
#include <liboath/oath.h>

#include <algorithm>

#include "relay/people/api_fixture.h"
#include "relay/people/totp.h"

namespace vlk::relay {
namespace {

constexpr char kNewPassword[] = "a new password";

class PeopleApiTest : public ApiTest {
 protected:
  PeopleApiTest() : root_(log_in_as("root")) {}

  static std::string code_of(const std::string& secret_text) {
    char* secret = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(oath_base32_decode(secret_text.data(), secret_text.size(), &secret, &size), OATH_OK);
    char code[kTotpDigits + 1];
    EXPECT_EQ(oath_totp_generate(secret, size, wall_seconds(), kTotpStepSeconds, 0, kTotpDigits, code),
              OATH_OK);
    std::free(secret);
    return code;
  }
  // Sets up codes for the log-in; returns the secret and puts the backup codes into `codes_`.
  std::string set_up_totp(const std::string& cookie) {
    const std::string secret = call("POST", "/api/totp/begin", {}, cookie).body.value("secret", "");
    const Answer done = call("POST", "/api/totp/confirm", {{"code", code_of(secret)}}, cookie);
    EXPECT_EQ(done.status, 200u) << done.body;
    codes_ = done.body.value("backup_codes", std::vector<std::string>());
    return secret;
  }
  // The codes of the trail's rows, without those of log-ins.
  Lines kinds() {
    Lines lines = audited();
    for (std::string& line : lines)
      line = line.substr(0, line.find(' '));
    return lines;
  }
  bool recorded(const std::string& kind) { return std::ranges::count(kinds(), kind) > 0; }

  const std::string root_;
  std::vector<std::string> codes_;
};

TEST_F(PeopleApiTest, NewPersonMustChangeTheOneTimePasswordFirst) {
  const Answer made = call("POST", "/api/people", {{"name", "ada"}, {"role", "representative"}}, root_);
  ASSERT_EQ(made.status, 200u) << made.body;
  const std::string once = made.body["password"];
  const Answer first = log_in_with("ada", once);
  EXPECT_EQ(first.body.value("stage", ""), "password");
  EXPECT_EQ(call("GET", "/api/agents", {}, first.cookie).status, 403u);
  EXPECT_EQ(call("POST", "/api/password", {{"old", once}, {"new", once}}, first.cookie).status, 400u);
  const Answer changed = call("POST", "/api/password", {{"old", once}, {"new", kNewPassword}}, first.cookie);
  EXPECT_EQ(changed.body.value("stage", ""), "full");
  EXPECT_EQ(call("GET", "/api/agents", {}, first.cookie).status, 200u);
  EXPECT_EQ(log_in_with("ada", once).status, 401u);
  EXPECT_EQ(log_in_with("ada", kNewPassword).body.value("stage", ""), "full");
  EXPECT_TRUE(recorded("person.added") && recorded("password.changed") && recorded("login.failed"));
}

TEST_F(PeopleApiTest, CodeIsNeededAtTheLogInAndWorksOnce) {
  const std::string secret = set_up_totp(root_);
  ASSERT_EQ(codes_.size(), kBackupCodes);
  const Answer first = log_in_with("root", kGoodPassword);
  EXPECT_EQ(first.body.value("stage", ""), "totp");
  const Answer used = call("POST", "/api/login/code", {{"code", code_of(secret)}}, first.cookie);
  EXPECT_EQ(used.status, 401u) << "the code confirmed the set-up, so it is used";
  const Answer with_backup = call("POST", "/api/login/code", {{"code", codes_[3]}}, first.cookie);
  EXPECT_EQ(with_backup.body.value("stage", ""), "full");
  EXPECT_EQ(call("GET", "/api/me", {}, first.cookie).body.value("backup_codes_left", 0), 9);
  const Answer second = log_in_with("root", kGoodPassword);
  EXPECT_EQ(call("POST", "/api/login/code", {{"code", codes_[3]}}, second.cookie).status, 401u);
  EXPECT_EQ(call("GET", "/api/people", {}, second.cookie).status, 403u);
  EXPECT_TRUE(recorded("totp.enabled") && recorded("backup-code.used"));
}

TEST_F(PeopleApiTest, WrongCodesWaitAndTheAnswerNamesTheSeconds) {
  set_up_totp(root_);
  const std::string cookie = log_in_as("root", LoginStage::Totp);
  Answer answer;
  for (int wrong = 0; wrong < 30 && answer.status != 429; ++wrong) {
    EXPECT_EQ(answer.retry_after, "");
    answer = call("POST", "/api/login/code", {{"code", "000000"}}, cookie);
  }
  EXPECT_EQ(answer.status, 429u);
  EXPECT_EQ(answer.body["code"], "too-many");
  EXPECT_EQ(answer.retry_after, "5");
}

TEST_F(PeopleApiTest, RoleThatNeedsCodesSetsThemUpAtTheLogIn) {
  add("eva", Role::Auditor);
  ASSERT_EQ(call("PATCH", "/api/settings", {{"totp_required", {"auditor"}}}, root_).status, 200u);
  const Answer login = log_in_with("eva", kGoodPassword);
  EXPECT_EQ(login.body.value("stage", ""), "totp-setup");
  set_up_totp(login.cookie);
  EXPECT_EQ(call("GET", "/api/me", {}, login.cookie).body.value("stage", ""), "full");
  EXPECT_EQ(call("POST", "/api/totp/remove", {{"password", kGoodPassword}}, login.cookie).status, 409u);
  EXPECT_TRUE(recorded("settings.changed"));
}

TEST_F(PeopleApiTest, DisablingRemovingAndResettingEndLogInsAtOnce) {
  for (const std::string how : {"disable", "remove", "reset", "end"}) {
    const std::string path = "/api/people/" + std::to_string(add("ada " + how, Role::Representative));
    const std::string cookie = log_in_as("ada " + how);
    ASSERT_EQ(call("GET", "/api/me", {}, cookie).status, 200u);
    Answer done;
    if (how == "disable") done = call("PATCH", path, {{"disabled", true}}, root_);
    if (how == "remove") done = call("DELETE", path, {}, root_);
    if (how == "reset") done = call("POST", path + "/password", {}, root_);
    if (how == "end") done = call("POST", path + "/end-logins", {}, root_);
    EXPECT_EQ(done.status, 200u) << done.body;
    EXPECT_EQ(call("GET", "/api/me", {}, cookie).status, 401u) << how;
    EXPECT_EQ(log_in_with("ada " + how, kGoodPassword).status, how == "end" ? 200u : 401u) << how;
  }
}

TEST_F(PeopleApiTest, LastAdministratorStays) {
  const std::string path = "/api/people/" + std::to_string(parts_->people.person_named("root")->id);
  for (const Json& change : {Json{{"disabled", true}}, Json{{"role", "auditor"}}})
    EXPECT_EQ(call("PATCH", path, change, root_).status, 409u);
  EXPECT_EQ(call("DELETE", path, {}, root_).status, 409u);
  EXPECT_FALSE(recorded("person.removed")) << "what was refused leaves no row";
  EXPECT_EQ(call("GET", "/api/people", {}, root_).status, 200u);
}

TEST_F(PeopleApiTest, RightsOfATeamReachItsMembersSessions) {
  const PersonId ada = add("ada", Role::Representative);
  const Agent agent = log_in("a");
  const Answer team = call("POST", "/api/teams", {{"name", "night"}, {"members", {ada}}}, root_);
  ASSERT_EQ(team.status, 200u) << team.body;
  const Json rights = {{"rights", {{{"team", team.body["id"]}, {"rights", {"see", "control"}}}}}};
  ASSERT_EQ(call("PUT", "/api/groups/1/rights", rights, root_).status, 200u);
  const Console browser = browse("ada");
  const std::uint32_t session = accepted(browser, agent);
  EXPECT_EQ(parts_->sessions.find(session)->rights, Rights(kSee | kControl));
  EXPECT_EQ(call("GET", "/api/groups", {}, root_).body["groups"][0]["rights"].size(), 1u);
  ASSERT_EQ(call("DELETE", "/api/teams/" + team.body["id"].dump(), {}, root_).status, 200u);
  EXPECT_EQ(parts_->sessions.find(session), nullptr) << "the right to see is gone";
  EXPECT_TRUE(recorded("rights.changed") && recorded("team.added") && recorded("team.removed"));
}

TEST_F(PeopleApiTest, InvitationIsUsedOnce) {
  const Json body = {{"name", "eva"}, {"role", "auditor"}, {"teams", Json::array()}, {"hours", 24}};
  const std::string token = call("POST", "/api/invitations", body, root_).body.value("token", "");
  ASSERT_FALSE(token.empty());
  const Json accept = {{"token", token}, {"password", kNewPassword}};
  EXPECT_EQ(call("POST", "/api/invitations/accept", {{"token", "x"}, {"password", kNewPassword}}).status,
            404u);
  EXPECT_EQ(call("POST", "/api/invitations/accept", accept).body.value("name", ""), "eva");
  EXPECT_EQ(call("POST", "/api/invitations/accept", accept).status, 404u);
  EXPECT_EQ(log_in_with("eva", kNewPassword).body.value("role", ""), "auditor");
}

TEST_F(PeopleApiTest, StepUpNeedsThePasswordAndCountsForSomeMinutes) {
  const Bytes hash = parts_->logins.all().front()->row.token_hash;
  EXPECT_EQ(call("POST", "/api/step-up", {{"password", "wrong"}}, root_).status, 401u);
  EXPECT_FALSE(parts_->logins.stepped_up(hash, wall_seconds()));
  const Answer done = call("POST", "/api/step-up", {{"password", kGoodPassword}}, root_);
  EXPECT_EQ(done.status, 200u) << done.body;
  EXPECT_TRUE(parts_->logins.stepped_up(hash, wall_seconds()));
  EXPECT_TRUE(recorded("step-up.succeeded") && recorded("step-up.failed"));
}

TEST_F(PeopleApiTest, StepUpExtendsTheLogIn) {
  LoginRow before = parts_->logins.all().front()->row;
  before.expires_at -= 10;
  before.last_used -= 10;
  parts_->logins.update(before);
  const Answer done = call("POST", "/api/step-up", {{"password", kGoodPassword}}, root_);
  ASSERT_EQ(done.status, 200u) << done.body;
  const LoginRow after = parts_->logins.all().front()->row;
  EXPECT_GE(after.expires_at, before.expires_at + 10);
  EXPECT_GE(after.last_used, before.last_used + 10);
  EXPECT_NEAR(done.body["until"].get<double>(), static_cast<double>(wall_seconds() + kStepUpSeconds), 30);
  settle();
  Database file(file_);
  Statement stored(file, "SELECT expires_at, last_used FROM logins");
  ASSERT_TRUE(stored.step());
  EXPECT_EQ(stored.number(0), after.expires_at);
  EXPECT_GE(stored.number(1), before.last_used + 10);
}

TEST_F(PeopleApiTest, OthersSeeAndEndOnlyTheirOwnLogIns) {
  add("ada", Role::Representative);
  const std::string cookie = log_in_as("ada");
  const Json own = call("GET", "/api/logins", {}, cookie).body["logins"];
  ASSERT_EQ(own.size(), 1u);
  EXPECT_EQ(call("GET", "/api/logins", {}, root_).body["logins"].size(), 2u);
  const std::string of_root = "/api/logins/" + std::to_string(parts_->logins.find_id(1)->row.id);
  EXPECT_EQ(call("DELETE", of_root, {}, cookie).status, 404u);
  EXPECT_EQ(call("DELETE", "/api/logins/" + own[0]["id"].dump(), {}, root_).status, 200u);
  EXPECT_EQ(call("GET", "/api/me", {}, cookie).status, 401u);
}

TEST_F(PeopleApiTest, RequestThatAPageMakesByItselfIsNoUseOfTheLogIn) {
  LoginRow before = parts_->logins.all().front()->row;
  before.last_used -= 100;
  parts_->logins.update(before);
  const auto last_used = [&] { return parts_->logins.all().front()->row.last_used; };
  Request unattended = request_for("GET", "/api/machines", Json::object(), root_);
  unattended.set("Vantelink-Unattended", "1");
  auto answer = answer_to(unattended, "10.0.0.9");
  EXPECT_EQ(result_of(std::move(answer)).status, 200u);
  EXPECT_EQ(last_used(), before.last_used);
  EXPECT_EQ(call("GET", "/api/machines", {}, root_).status, 200u);
  EXPECT_GT(last_used(), before.last_used);
}

TEST_F(PeopleApiTest, TimeWithoutUseIsLongerThanItsWarning) {
  EXPECT_EQ(call("PATCH", "/api/settings", {{"idle_minutes", 1}}, root_).status, 400u);
  for (const int minutes : {0, 2})
    EXPECT_EQ(call("PATCH", "/api/settings", {{"idle_minutes", minutes}}, root_).status, 200u);
}

TEST_F(PeopleApiTest, ForgettingAMachineNeedsItsRight) {
  const PersonId ada = add("ada", Role::Representative);
  const std::string cookie = log_in_as("ada");
  parts_->machines.remove_connection(log_in("a"));
  EXPECT_EQ(call("DELETE", "/api/agents/a", {}, cookie).status, 404u) << "the machine is not seen";
  give_rights(ada, kSee);
  EXPECT_EQ(call("DELETE", "/api/agents/a", {}, cookie).status, 403u);
  give_rights(ada, kSee | kForget);
  EXPECT_EQ(call("DELETE", "/api/agents/a", {}, cookie).status, 200u);
}

}  // namespace
}  // namespace vlk::relay
