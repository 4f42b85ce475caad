// Teams of people, groups of machines, and the rights in groups.
#include <algorithm>

#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

std::vector<std::string> names_of(const Api& api, const std::vector<PersonId>& people) {
  std::vector<std::string> names;
  for (const PersonId id : people) {
    const Person* person = api.parts.people.person(id);
    if (!person) throw ApiError(HttpStatus::bad_request, "There is no such person.");
    names.push_back(person->name);
  }
  return names;
}

const Team& team_of(const Api& api, const Call& call) {
  const Team* team = api.parts.people.team(id_of(call));
  if (!team) not_found();
  return *team;
}

const Group& group_of(const Api& api, const Call& call) {
  const Group* group = api.parts.people.group(id_of(call));
  if (!group) not_found();
  return *group;
}

template <class Row>
void require_free_name(const std::vector<Row>& rows, const Row& row) {
  const auto taken = [&](const Row& other) { return other.name == row.name && other.id != row.id; };
  if (std::ranges::any_of(rows, taken))
    throw ApiError(HttpStatus::conflict, "The name is in use.", "name-taken");
}

Json rights_json(const Api& api, GroupId group) {
  Json list = Json::array();
  for (const RightRow& row : api.parts.people.all().rights) {
    if (row.group != group) continue;
    Json entry = {{"rights", right_names(row.mask)}};
    if (row.person) entry["person"] = *row.person;
    if (row.team) entry["team"] = *row.team;
    list.push_back(std::move(entry));
  }
  return list;
}

Json group_json(const Api& api, const Group& group) {
  return {{"id", group.id},
          {"name", group.name},
          {"step_up", group.step_up},
          {"ask_reason", group.ask_reason},
          {"four_eyes", group.four_eyes},
          {"machines", api.parts.machines.count_in(group.id)},
          {"rights", rights_json(api, group.id)}};
}

RightRow right_row(const Api& api, GroupId group, const Json& entry) {
  const auto refuse = [] { throw ApiError(HttpStatus::bad_request, "The list of rights is not valid."); };
  RightRow row{group};
  if (!entry.is_object() || entry.contains("person") == entry.contains("team")) refuse();
  const char* who = entry.contains("person") ? "person" : "team";
  const std::int64_t id = number_in(entry, who, 1, INT64_MAX);
  if (entry.contains("person")) row.person = id;
  if (entry.contains("team")) row.team = id;
  if (row.person ? !api.parts.people.person(id) : !api.parts.people.team(id)) refuse();
  if (!entry.contains("rights") || !entry["rights"].is_array()) refuse();
  for (const Json& name : entry["rights"]) {
    const auto right = name.is_string() ? right_of_name(name.get<std::string>()) : std::nullopt;
    if (!right) refuse();
    row.mask |= *right;
  }
  return row;
}

// One row of the trail for each person and team whose rights in the group differ.
std::vector<TrailEntry> differences(const Api& api, const Call& call, const Group& group,
                                    const std::vector<RightRow>& after) {
  std::vector<RightRow> all = after;
  for (const RightRow& row : api.parts.people.all().rights) {
    if (row.group == group.id) all.push_back(row);
  }
  const auto mask_in = [](const std::vector<RightRow>& rows, const RightRow& key) {
    const auto found = std::ranges::find_if(rows, [&](const RightRow& row) {
      return row.group == key.group && row.person == key.person && row.team == key.team;
    });
    return found == rows.end() ? kNoRights : found->mask;
  };
  std::set<std::pair<PersonId, TeamId>> seen;
  std::vector<TrailEntry> entries;
  for (const RightRow& row : all) {
    if (!seen.insert({row.person.value_or(0), row.team.value_or(0)}).second) continue;
    const Rights now = mask_in(after, row), before = mask_in(api.parts.people.all().rights, row);
    if (now == before) continue;
    const Person* person = row.person ? api.parts.people.person(*row.person) : nullptr;
    const Team* team = row.team ? api.parts.people.team(*row.team) : nullptr;
    entries.push_back(trail_entry<TrailKind::RightsChanged>(
        call.subject(), group.name, person ? person->name : std::string(), team ? team->name : std::string(),
        right_names(now), right_names(before)));
  }
  return entries;
}

}  // namespace

JsonReply list_teams(Api& api, Call&) {
  Json list = Json::array();
  for (const Team& team : api.parts.people.all().teams)
    list.push_back({{"id", team.id}, {"name", team.name}, {"members", team.members}});
  co_return Json{{"teams", list}};
}

JsonReply add_team_route(Api& api, Call& call) {
  const Team team{0, name_in(call.body), ids_in(call.body, "members")};
  require_free_name(api.parts.people.all().teams, team);
  const auto members = names_of(api, team.members);
  const auto work = [team](Database& database) {
    const auto added = add_team(database, team);
    if (!added) throw ApiError(HttpStatus::conflict, "The name is in use.", "name-taken");
    return *added;
  };
  const TrailEntry row = trail_entry<TrailKind::TeamAdded>(call.subject(), team.name, members);
  const TeamId id = co_await change(api, work, row);
  co_return Json{{"id", id}};
}

JsonReply change_team(Api& api, Call& call) {
  const Team before = team_of(api, call);
  Team after = before;
  if (call.body.contains("name")) after.name = name_in(call.body);
  if (call.body.contains("members")) after.members = ids_in(call.body, "members");
  require_free_name(api.parts.people.all().teams, after);
  const auto members = names_of(api, after.members);
  const auto work = [after](Database& database) {
    if (!update_team(database, after)) not_found();
  };
  const TrailEntry row =
      trail_entry<TrailKind::TeamChanged>(call.subject(), before.name, members, after.name);
  co_await change(api, work, row);
  co_return Json::object();
}

JsonReply remove_team_route(Api& api, Call& call) {
  const Team team = team_of(api, call);
  const auto work = [id = team.id](Database& database) {
    if (!remove_team(database, id)) not_found();
  };
  const TrailEntry row = trail_entry<TrailKind::TeamRemoved>(call.subject(), team.name);
  co_await change(api, work, row);
  co_return Json::object();
}

JsonReply list_groups(Api& api, Call&) {
  Json list = Json::array();
  for (const Group& group : api.parts.people.all().groups)
    list.push_back(group_json(api, group));
  co_return Json{{"groups", list}};
}

JsonReply add_group_route(Api& api, Call& call) {
  const Group group{0, name_in(call.body), flag_in(call.body, "step_up", false),
                    flag_in(call.body, "ask_reason", false), flag_in(call.body, "four_eyes", false)};
  require_free_name(api.parts.people.all().groups, group);
  const auto work = [group](Database& database) {
    const auto added = add_group(database, group);
    if (!added) throw ApiError(HttpStatus::conflict, "The name is in use.", "name-taken");
    return *added;
  };
  const TrailEntry row = trail_entry<TrailKind::GroupAdded>(call.subject(), group.name, group.step_up,
                                                            group.ask_reason, group.four_eyes);
  const GroupId id = co_await change(api, work, row);
  co_return Json{{"id", id}};
}

JsonReply change_group(Api& api, Call& call) {
  const Group before = group_of(api, call);
  Group after = before;
  if (call.body.contains("name")) after.name = name_in(call.body);
  after.step_up = flag_in(call.body, "step_up", before.step_up);
  after.ask_reason = flag_in(call.body, "ask_reason", before.ask_reason);
  after.four_eyes = flag_in(call.body, "four_eyes", before.four_eyes);
  require_free_name(api.parts.people.all().groups, after);
  const auto work = [after](Database& database) {
    if (!update_group(database, after)) not_found();
  };
  const TrailEntry row = trail_entry<TrailKind::GroupChanged>(call.subject(), before.name, after.step_up,
                                                              after.ask_reason, after.name, after.four_eyes);
  co_await change(api, work, row);
  co_return Json::object();
}

JsonReply remove_group_route(Api& api, Call& call) {
  const Group group = group_of(api, call);
  if (group.id == kFirstGroup)
    throw ApiError(HttpStatus::conflict, "The first group cannot be removed; it can be renamed.");
  const auto work = [id = group.id](Database& database) {
    if (!remove_group(database, id)) not_found();
  };
  const TrailEntry row = trail_entry<TrailKind::GroupRemoved>(call.subject(), group.name);
  co_await change(api, work, row);
  api.parts.machines.group_removed(group.id);
  api.parts.sessions.refresh_rights();
  co_return Json::object();
}

JsonReply set_rights(Api& api, Call& call) {
  const Group group = group_of(api, call);
  if (!call.body.is_object() || !call.body.contains("rights") || !call.body["rights"].is_array())
    throw ApiError(HttpStatus::bad_request, "The list of rights is missing.");
  std::vector<RightRow> rows;
  for (const Json& entry : call.body["rights"]) {
    const RightRow row = right_row(api, group.id, entry);
    const auto same = [&](const RightRow& other) {
      return other.person == row.person && other.team == row.team;
    };
    if (std::ranges::any_of(rows, same))
      throw ApiError(HttpStatus::bad_request, "A person or team is listed twice.");
    if (row.mask != kNoRights) rows.push_back(row);
  }
  const auto work = [id = group.id, rows](Database& database) { replace_rights(database, id, rows); };
  const std::vector<TrailEntry> entries = differences(api, call, group, rows);
  co_await change(api, work, entries);
  co_return Json::object();
}

}  // namespace vlk::relay
