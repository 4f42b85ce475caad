// A request that changes something is refused, and changes nothing, when it cannot be recorded.
#include "relay/http/api/endpoints.h"
#include "relay/people/api_fixture.h"

namespace vlk::relay {
namespace {

using boost::beast::http::verb;

struct Change {
  const char* method = "";
  const char* path = "";
  Json body{};
};

class UnrecordedTest : public ApiTest {
 protected:
  UnrecordedTest() {
    EXPECT_EQ(call("POST", "/api/teams", {{"name", "night"}}, root_).status, 200u);
    EXPECT_EQ(call("POST", "/api/groups", {{"name", "branch"}}, root_).status, 200u);
    EXPECT_EQ(
        call("POST", "/api/invitations", {{"name", "eva"}, {"role", "auditor"}, {"hours", 1}}, root_).status,
        200u);
    EXPECT_EQ(call("POST", "/api/enrolment", {{"group", 1}, {"minutes", 5}}, root_).status, 200u);
    (void)log_in("a");
    settle();
  }
  // What is in memory and is to stay.
  std::string state() {
    const People::Contents& all = parts_->people.all();
    Json state = {all.people.size(), all.teams.size(),       all.groups.size(),
                  all.rights.size(), all.invitations.size(), all.settings.size()};
    for (const Person& person : all.people)
      state.push_back({person.name, person.password, person.disabled, role_name(person.role)});
    for (const Team& team : all.teams)
      state.push_back({team.name, team.members});
    for (const Group& group : all.groups)
      state.push_back({group.name, group.step_up});
    for (const auto& [id, machine] : parts_->machines.records())
      state.push_back({id, state_name(machine.state), machine.group});
    state.push_back(admission_.windows().all().size());
    return state.dump();
  }

  const PersonId ada_ = add("ada", Role::Representative);
  const std::string root_ = log_in_as("root");
};

TEST_F(UnrecordedTest, EveryChangeIsUndone) {
  const std::vector<Change> changes = {
      {"POST", "/api/password", {{"old", kGoodPassword}, {"new", "another password"}}},
      {"POST", "/api/people", {{"name", "ben"}, {"role", "auditor"}}},
      {"PATCH", "/api/people/2", {{"disabled", true}}},
      {"DELETE", "/api/people/2"},
      {"POST", "/api/people/2/password"},
      {"POST", "/api/people/2/totp-reset"},
      {"POST", "/api/people/2/end-logins"},
      {"POST", "/api/invitations", {{"name", "eve"}, {"role", "auditor"}, {"hours", 1}}},
      {"DELETE", "/api/invitations/1"},
      {"POST", "/api/teams", {{"name", "day"}}},
      {"PATCH", "/api/teams/1", {{"name", "day"}}},
      {"DELETE", "/api/teams/1"},
      {"POST", "/api/groups", {{"name", "lab"}}},
      {"PATCH", "/api/groups/2", {{"step_up", true}}},
      {"DELETE", "/api/groups/2"},
      {"PUT", "/api/groups/1/rights", {{"rights", {{{"person", 2}, {"rights", {"see"}}}}}}},
      {"POST", "/api/machines/block", {{"ids", {"a"}}, {"reason", "stolen"}}},
      {"POST", "/api/machines/quarantine", {{"ids", {"a"}}, {"reason", "infected"}}},
      {"POST", "/api/machines/move", {{"ids", {"a"}}, {"group", 2}}},
      {"POST", "/api/machines/remove", {{"ids", {"a"}}}},
      {"POST", "/api/enrolment", {{"group", 1}, {"minutes", 5}}},
      {"DELETE", "/api/enrolment/1"},
      {"PATCH", "/api/settings", {{"retention_days", 5}}},
      {"POST", "/api/login", {{"name", "ada"}, {"password", kGoodPassword}}},
      {"GET", "/api/trail/export?format=csv"},
  };
  const std::string before = state();
  const std::size_t log_ins = parts_->logins.all().size();
  break_audit_trail();
  for (const Change& change : changes) {
    const Answer answer = call(change.method, change.path, change.body, root_);
    EXPECT_EQ(answer.status, 500u) << change.method << ' ' << change.path << ' ' << answer.body;
    EXPECT_EQ(state(), before) << change.method << ' ' << change.path;
    EXPECT_EQ(parts_->logins.all().size(), log_ins) << change.path;
  }
}

TEST_F(UnrecordedTest, LogOutEndsTheLogInAllTheSame) {
  break_audit_trail();
  EXPECT_EQ(call("POST", "/api/logout", {}, root_).status, 500u);
  EXPECT_EQ(call("GET", "/api/me", {}, root_).status, 401u);
}

}  // namespace
}  // namespace vlk::relay
