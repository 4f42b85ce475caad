// What must hold after each request.
#include <algorithm>

#include "relay/base/secrets.h"
#include "relay/http/api/endpoints.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/trail/check/verify.h"
#include "require.h"
#include "world/api_script.h"

namespace http = boost::beast::http;

namespace vlk::relay::fuzz {
namespace {

void add_people(std::string& own, std::string& common, const People::Contents& all) {
  for (const Person& person : all.people) {
    common += Json({person.id, person.name, role_name(person.role), person.disabled}).dump();
    own += Json({person.id, person.password, person.must_change, to_hex(person.totp_secret)}).dump();
  }
  for (const BackupCode& code : all.backup_codes)
    own += Json({code.person, to_hex(code.hash)}).dump();
}

void add_access(std::string& common, const People::Contents& all) {
  for (const Team& team : all.teams)
    common += Json({team.id, team.name, team.members}).dump();
  for (const Group& group : all.groups)
    common += Json({group.id, group.name, group.step_up, group.ask_reason}).dump();
  for (const RightRow& row : all.rights)
    common += Json({row.group, row.person.value_or(0), row.team.value_or(0), row.mask}).dump();
  for (const Invitation& invitation : all.invitations)
    common += Json({invitation.id, invitation.name, role_name(invitation.role), invitation.teams}).dump();
  for (const Setting& setting : all.settings)
    common += Json({setting.key, setting.value}).dump();
}

std::string text_of(const MachineRecord& machine) {
  return Json({machine.id, machine.name, machine.group, state_name(machine.state), machine.reason}).dump();
}

// Requests that somebody without a log-in may make, or that change only the sender's own log-in.
bool is_open(std::string_view path) {
  return path == "/api/login" || path == "/api/invitations/accept";
}

}  // namespace

ApiScript::State ApiScript::stored() {
  return world_.database().run_and_wait([](Store& store) {
    Database& database = store.database();
    State state;
    const People::Contents all = People::load(database);
    add_people(state.own, state.common, all);
    add_access(state.common, all);
    std::vector<MachineRecord> machines = load_machines(database);
    std::ranges::sort(machines, {}, &MachineRecord::id);
    for (const MachineRecord& machine : machines)
      state.common += text_of(machine);
    for (const EnrolmentWindow& window : load_enrolment_windows(database))
      state.common += Json({window.id, window.group, window.until}).dump();
    Statement rows(database, "SELECT coalesce(max(id), 0) FROM trail");
    rows.step();
    state.rows = rows.number(0);
    return state;
  });
}

void ApiScript::check(const Request& request, const Answer& answer, const std::optional<Caller>& caller,
                      const State& before) {
  const State after = stored();
  REQUIRE(answer.status != 500 && world_.logged().find("is lost") == std::string::npos);
  const std::string_view path = path_of(request);
  if (answer.status != 200 || !path.starts_with("/api/trail/export"))
    REQUIRE(Json::parse(answer.text, nullptr, false).is_object());
  const bool changed = after.common != before.common || after.own != before.own;
  if (changed) {
    REQUIRE(request.method() != http::verb::get && request.method() != http::verb::head);
    REQUIRE(from_own_page(request));
    REQUIRE(after.rows > before.rows);
  }
  std::string key;
  const Endpoint* endpoint = find_endpoint(request.method(), path, key);
  if (answer.status == 200) {
    REQUIRE(endpoint);
    if (endpoint->stages != kNobodyYet) {
      REQUIRE(caller && (endpoint->stages & bit_of(caller->stage)) &&
              (endpoint->roles & bit_of(caller->role)));
    }
  }
  const bool administers = caller && caller->role == Role::Administrator && caller->stage == LoginStage::Full;
  const bool forgets = caller && caller->role == Role::Representative && caller->stage == LoginStage::Full &&
                       path.starts_with("/api/agents/");
  if (!administers && !forgets && !is_open(path)) REQUIRE(after.common == before.common);
  if (!caller && !is_open(path)) REQUIRE(after.own == before.own);
  check_memory(after);
}

void ApiScript::check_memory(const State& after) {
  State memory;
  add_people(memory.own, memory.common, world_.parts().people.all());
  add_access(memory.common, world_.parts().people.all());
  REQUIRE(memory.own == after.own);
  REQUIRE(after.common.starts_with(memory.common));
  for (const auto& [id, machine] : world_.parts().machines.records())
    memory.common += text_of(machine);
  REQUIRE(after.common.starts_with(memory.common));
  const auto administers = [](const Person& person) {
    return person.role == Role::Administrator && !person.disabled;
  };
  REQUIRE(std::ranges::any_of(world_.parts().people.all().people, administers));
  Database database(world_.file());
  REQUIRE(verify_after_last_head(database).intact);
}

}  // namespace vlk::relay::fuzz
