// Looks up people and their rights.
#include "relay/people/people.h"

#include <algorithm>
#include <charconv>

#include <nlohmann/json.hpp>

#include "relay/base/text.h"

namespace vlk::relay {
namespace {

template <class Row>
const Row* row_with_id(const std::vector<Row>& rows, std::int64_t id) {
  const auto found = std::ranges::find(rows, id, &Row::id);
  return found == rows.end() ? nullptr : &*found;
}

void read_number(const std::string& text, std::int64_t& number) {
  std::int64_t read = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, read);
  if (error == std::errc() && stop == end && read >= 0) number = read;
}

std::set<Role> read_roles(const std::string& text) {
  std::set<Role> roles;
  const auto list = nlohmann::json::parse(text, nullptr, false);
  for (const auto& name : list) {
    if (!name.is_string()) continue;
    if (const auto role = role_of(name.get<std::string>())) roles.insert(*role);
  }
  return roles;
}

}  // namespace

bool valid_person_name(std::string_view name) {
  if (name.empty() || name.size() > 64 || name.front() == ' ' || name.back() == ' ' || name.front() == '(')
    return false;
  return !has_control(name) && name.find_first_of("\"\\") == std::string_view::npos;
}

People::Contents People::load(Database& database) {
  return {load_people(database),  load_teams(database),       load_groups(database),
          load_rights(database),  load_invitations(database), load_backup_codes(database),
          load_settings(database)};
}

void People::replace(Contents contents) {
  thread_.check();
  contents_ = std::move(contents);
  people_.clear();
  for (std::size_t i = 0; i < contents_.people.size(); ++i)
    people_[contents_.people[i].id] = i;
  given_.clear();
  for (const RightRow& row : contents_.rights) {
    if (row.person) given_[{*row.person, row.group}] |= row.mask;
    const Team* of_team = row.team ? team(*row.team) : nullptr;
    if (!of_team) continue;
    for (const PersonId member : of_team->members)
      given_[{member, row.group}] |= row.mask;
  }
  if (changed_) changed_();
}

const Person* People::person(PersonId id) const {
  const auto found = people_.find(id);
  return found == people_.end() ? nullptr : &contents_.people[found->second];
}

const Person* People::person_named(std::string_view name) const {
  const auto found = std::ranges::find(contents_.people, name, &Person::name);
  return found == contents_.people.end() ? nullptr : &*found;
}

const Team* People::team(TeamId id) const {
  return row_with_id(contents_.teams, id);
}

const Group* People::group(GroupId id) const {
  return row_with_id(contents_.groups, id);
}

std::vector<TeamId> People::teams_of(PersonId id) const {
  std::vector<TeamId> teams;
  for (const Team& team : contents_.teams) {
    if (std::ranges::count(team.members, id) > 0) teams.push_back(team.id);
  }
  return teams;
}

std::size_t People::backup_codes_left(PersonId id) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      contents_.backup_codes, [&](const BackupCode& code) { return code.person == id && !code.used_at; }));
}

RelaySettings People::settings(const Limits& limits) const {
  std::int64_t hours = 0;
  std::int64_t minutes = -1;
  RelaySettings result;
  for (const Setting& setting : contents_.settings) {
    if (setting.key == "login_hours") read_number(setting.value, hours);
    if (setting.key == "idle_minutes") read_number(setting.value, minutes);
    if (setting.key == "retention_days") read_number(setting.value, result.retention_days);
    if (setting.key == "totp_required") result.totp_required = read_roles(setting.value);
  }
  result.login_seconds = hours > 0 ? hours * 3600 : limits.login.count();
  result.idle_seconds = minutes >= 0 ? minutes * 60 : limits.idle_login.count();
  return result;
}

bool People::totp_required(Role role) const {
  return settings(Limits{}).totp_required.contains(role);
}

Rights People::rights_of(PersonId id, GroupId group) const {
  const Person* who = person(id);
  if (!who || who->disabled || who->role == Role::Auditor) return kNoRights;
  if (who->role == Role::Administrator) return kAllRights;
  const auto found = given_.find({id, group});
  return found == given_.end() ? kNoRights : effective(found->second & kAllRights);
}

bool People::is_last_administrator(PersonId id) const {
  const auto administers = [](const Person& person) {
    return person.role == Role::Administrator && !person.disabled;
  };
  const Person* who = person(id);
  return who && administers(*who) && std::ranges::count_if(contents_.people, administers) == 1;
}

}  // namespace vlk::relay
