// People: list, add, change, remove, new passwords.
#include <algorithm>

#include "relay/base/secrets.h"
#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

Json person_json(const Api& api, const Person& person) {
  return {{"id", person.id},
          {"name", person.name},
          {"role", role_name(person.role)},
          {"disabled", person.disabled},
          {"totp", !person.totp_secret.empty()},
          {"must_change", person.must_change},
          {"teams", api.parts.people.teams_of(person.id)},
          {"logins", api.parts.logins.count_of(person.id)}};
}

const Person& person_of(const Api& api, const Call& call) {
  const Person* person = api.parts.people.person(id_of(call));
  if (!person) not_found();
  return *person;
}

Role role_in(const Json& body, Role otherwise) {
  if (!body.is_object() || !body.contains("role")) return otherwise;
  const auto role = role_of(text_in(body, "role"));
  if (!role) throw ApiError(HttpStatus::bad_request, "There is no such role.");
  return *role;
}

Person load_person(Database& database, PersonId id) {
  std::vector<Person> people = load_people(database);
  const auto found = std::ranges::find(people, id, &Person::id);
  if (found == people.end()) not_found();
  return std::move(*found);
}

// Makes the person a member of exactly these teams.
void set_teams(Database& database, PersonId id, const std::vector<TeamId>& teams) {
  for (Team& team : load_teams(database)) {
    const bool wanted = std::ranges::count(teams, team.id) > 0;
    const bool member = std::ranges::count(team.members, id) > 0;
    if (wanted == member) continue;
    std::erase(team.members, id);
    if (wanted) team.members.push_back(id);
    update_team(database, team);
  }
}

void require_free_name(const Api& api, const std::string& name, PersonId own) {
  const Person* other = api.parts.people.person_named(name);
  if (other && other->id != own)
    throw ApiError(HttpStatus::conflict, "Somebody has this name already.", "name-taken");
}

std::vector<std::string> team_names(const Api& api, const std::vector<TeamId>& teams) {
  std::vector<std::string> names;
  for (const TeamId id : teams) {
    const Team* team = api.parts.people.team(id);
    if (!team) throw ApiError(HttpStatus::bad_request, "There is no such team.");
    names.push_back(team->name);
  }
  return names;
}

}  // namespace

JsonReply list_people(Api& api, Call&) {
  Json people = Json::array();
  for (const Person& person : api.parts.people.all().people)
    people.push_back(person_json(api, person));
  co_return Json{{"people", people}};
}

JsonReply add_person_route(Api& api, Call& call) {
  Person person;
  person.name = name_in(call.body);
  person.role = role_in(call.body, Role::Representative);
  require_free_name(api, person.name, 0);
  const std::vector<TeamId> teams = ids_in(call.body, "teams");
  (void)team_names(api, teams);
  const std::string password = random_password();
  person.password = co_await hashed(api, call, password);
  person.must_change = true;
  person.created_at = wall_seconds();
  const auto work = [person, teams](Database& database) {
    const auto added = add_person(database, person);
    if (!added) throw ApiError(HttpStatus::conflict, "Somebody has this name already.", "name-taken");
    set_teams(database, *added, teams);
    return *added;
  };
  const TrailEntry row =
      trail_entry<TrailKind::PersonAdded>(call.subject(), person.name, role_name(person.role));
  const PersonId id = co_await change(api, work, row);
  co_return Json{{"id", id}, {"password", password}};
}

JsonReply change_person(Api& api, Call& call) {
  const Person before = person_of(api, call);
  Person after = before;
  if (call.body.contains("name")) after.name = name_in(call.body);
  after.role = role_in(call.body, before.role);
  after.disabled = flag_in(call.body, "disabled", before.disabled);
  require_free_name(api, after.name, before.id);
  const bool with_teams = call.body.contains("teams");
  const std::vector<TeamId> teams =
      with_teams ? ids_in(call.body, "teams") : api.parts.people.teams_of(before.id);
  const auto entry = trail_entry<TrailKind::PersonChanged>(
      call.subject(), before.name, role_name(after.role), after.disabled, team_names(api, teams), after.name);
  const auto work = [after, teams](Database& database) {
    // Only what was asked for changes: the password can have been changed meanwhile.
    Person stored = load_person(database, after.id);
    stored.name = after.name;
    stored.role = after.role;
    stored.disabled = after.disabled;
    update_person(database, stored);
    set_teams(database, after.id, teams);
    if (after.disabled) remove_logins_of(database, after.id, {});
  };
  co_await change(api, work, entry);
  if (after.disabled) api.parts.logins.end_all_of(after.id, {}, "the account was disabled");
  co_return Json::object();
}

JsonReply remove_person_route(Api& api, Call& call) {
  const Person person = person_of(api, call);
  const auto work = [id = person.id](Database& database) {
    if (!remove_person(database, id)) not_found();
  };
  const TrailEntry row = trail_entry<TrailKind::PersonRemoved>(call.subject(), person.name);
  co_await change(api, work, row);
  api.parts.logins.end_all_of(person.id, {}, "the account was removed");
  co_return Json::object();
}

JsonReply reset_password(Api& api, Call& call) {
  const Person person = person_of(api, call);
  const std::string password = random_password();
  const std::string hash = co_await hashed(api, call, password);
  const auto work = [id = person.id, hash](Database& database) {
    Person stored = load_person(database, id);
    stored.password = hash;
    stored.must_change = true;
    update_person(database, stored);
    remove_logins_of(database, id, {});
  };
  const TrailEntry row = trail_entry<TrailKind::PasswordReset>(call.subject(), person.name);
  co_await change(api, work, row);
  api.parts.logins.end_all_of(person.id, {}, "the password was reset");
  co_return Json{{"password", password}};
}

JsonReply reset_totp(Api& api, Call& call) {
  const Person person = person_of(api, call);
  const auto work = [id = person.id](Database& database) {
    Person stored = load_person(database, id);
    stored.totp_secret.clear();
    stored.totp_last_step = 0;
    update_person(database, stored);
    replace_backup_codes(database, id, {});
    remove_logins_of(database, id, {});
  };
  const TrailEntry row = trail_entry<TrailKind::TotpRemoved>(call.subject(), person.name);
  co_await change(api, work, row);
  api.parts.logins.end_all_of(person.id, {}, "the codes were reset");
  co_return Json::object();
}

JsonReply end_logins_of(Api& api, Call& call) {
  const Person person = person_of(api, call);
  const auto work = [id = person.id](Database& database) { remove_logins_of(database, id, {}); };
  const TrailEntry row = trail_entry<TrailKind::LoginEnded>(call.subject(), "administrator", person.name);
  co_await change(api, work, row);
  api.parts.logins.end_all_of(person.id, {}, "an administrator ended the log-in");
  co_return Json::object();
}

}  // namespace vlk::relay
