// The statements on the tables of teams and invitations.
#include <map>

#include <nlohmann/json.hpp>

#include "relay/storage/people/people_store.h"

namespace vlk::relay {
namespace {

void add_members(Database& database, std::int64_t team, const std::vector<std::int64_t>& members) {
  for (const std::int64_t person : members) {
    Statement(database, "INSERT INTO team_members(team, person) VALUES(?, ?) ON CONFLICT DO NOTHING")
        .bind(team)
        .bind(person)
        .run();
  }
}

std::vector<std::int64_t> numbers_of(const std::string& text) {
  const nlohmann::json list = nlohmann::json::parse(text, nullptr, false);
  std::vector<std::int64_t> numbers;
  for (const nlohmann::json& entry : list) {
    if (entry.is_number_integer()) numbers.push_back(entry.get<std::int64_t>());
  }
  return numbers;
}

}  // namespace

std::vector<Team> load_teams(Database& database) {
  Statement query(database, "SELECT id, name FROM teams ORDER BY id");
  std::vector<Team> result;
  std::map<std::int64_t, std::size_t> places;
  while (query.step()) {
    places[query.number(0)] = result.size();
    result.push_back({query.number(0), query.text(1), {}});
  }
  Statement members(database, "SELECT team, person FROM team_members ORDER BY team, person");
  while (members.step())
    result[places.at(members.number(0))].members.push_back(members.number(1));
  return result;
}

std::optional<std::int64_t> add_team(Database& database, const Team& team) {
  Statement(database, "INSERT INTO teams(name) VALUES(?) ON CONFLICT DO NOTHING").bind(team.name).run();
  if (database.changes() == 0) return std::nullopt;
  const std::int64_t id = database.last_id();
  add_members(database, id, team.members);
  return id;
}

bool update_team(Database& database, const Team& team) {
  Statement(database, "UPDATE teams SET name = ? WHERE id = ?").bind(team.name).bind(team.id).run();
  if (database.changes() == 0) return false;
  Statement(database, "DELETE FROM team_members WHERE team = ?").bind(team.id).run();
  add_members(database, team.id, team.members);
  return true;
}

bool remove_team(Database& database, std::int64_t id) {
  Statement(database, "DELETE FROM teams WHERE id = ?").bind(id).run();
  return database.changes() > 0;
}

std::vector<Invitation> load_invitations(Database& database) {
  Statement query(
      database, "SELECT id, token_hash, name, role, teams, expires_at, made_by FROM invitations ORDER BY id");
  std::vector<Invitation> result;
  while (query.step()) {
    const auto role = role_of(query.text(3));
    if (!role) throw DatabaseError("The database has an invitation with an unknown role.");
    result.push_back({query.number(0), query.bytes(1), query.text(2), *role, numbers_of(query.text(4)),
                      query.number(5), query.text(6)});
  }
  return result;
}

std::int64_t add_invitation(Database& database, const Invitation& invitation) {
  Statement(database,
            "INSERT INTO invitations(token_hash, name, role, teams, expires_at, made_by) "
            "VALUES(?, ?, ?, ?, ?, ?)")
      .bind(invitation.token_hash)
      .bind(invitation.name)
      .bind(role_name(invitation.role))
      .bind(nlohmann::json(invitation.teams).dump())
      .bind(invitation.expires_at)
      .bind(invitation.made_by)
      .run();
  return database.last_id();
}

bool remove_invitation(Database& database, std::int64_t id) {
  Statement(database, "DELETE FROM invitations WHERE id = ?").bind(id).run();
  return database.changes() > 0;
}

}  // namespace vlk::relay
