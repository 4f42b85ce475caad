// The statements on the tables of groups, rights, log-ins and settings.
#include "relay/storage/people/access_store.h"

#include <utility>

namespace vlk::relay {
namespace {

constexpr std::pair<LoginStage, std::string_view> kStages[] = {
    {LoginStage::Password, "password"},
    {LoginStage::Totp, "totp"},
    {LoginStage::TotpSetup, "totp-setup"},
    {LoginStage::Full, "full"},
};

constexpr char kLoginColumns[] =
    "SELECT id, token_hash, person, stage, created_at, last_used, expires_at, idle_limit, address FROM "
    "logins";

LoginRow login_of(const Statement& row) {
  LoginRow login;
  login.id = row.number(0);
  login.token_hash = row.bytes(1);
  login.person = row.number(2);
  login.stage = stage_of(row.text(3));
  login.created_at = row.number(4);
  login.last_used = row.number(5);
  login.expires_at = row.number(6);
  login.idle_limit = row.number(7);
  login.address = row.text(8);
  return login;
}

}  // namespace

std::string_view stage_name(LoginStage stage) {
  for (const auto& [known, name] : kStages) {
    if (known == stage) return name;
  }
  return {};
}

LoginStage stage_of(std::string_view name) {
  for (const auto& [stage, known] : kStages) {
    if (known == name) return stage;
  }
  throw DatabaseError("The database has a log-in with an unknown stage.");
}

std::vector<Group> load_groups(Database& database) {
  Statement query(database, "SELECT id, name, step_up, ask_reason, four_eyes FROM groups ORDER BY id");
  std::vector<Group> result;
  while (query.step())
    result.push_back(
        {query.number(0), query.text(1), query.number(2) != 0, query.number(3) != 0, query.number(4) != 0});
  return result;
}

std::optional<std::int64_t> add_group(Database& database, const Group& group) {
  Statement(
      database,
      "INSERT INTO groups(name, step_up, ask_reason, four_eyes) VALUES(?, ?, ?, ?) ON CONFLICT DO NOTHING")
      .bind(group.name)
      .bind(group.step_up)
      .bind(group.ask_reason)
      .bind(group.four_eyes)
      .run();
  if (database.changes() == 0) return std::nullopt;
  return database.last_id();
}

bool update_group(Database& database, const Group& group) {
  Statement(database, "UPDATE groups SET name = ?, step_up = ?, ask_reason = ?, four_eyes = ? WHERE id = ?")
      .bind(group.name)
      .bind(group.step_up)
      .bind(group.ask_reason)
      .bind(group.four_eyes)
      .bind(group.id)
      .run();
  return database.changes() > 0;
}

bool remove_group(Database& database, std::int64_t id) {
  if (id == kFirstGroup) return false;
  Statement(database, "UPDATE machines SET group_id = ? WHERE group_id = ?").bind(kFirstGroup).bind(id).run();
  Statement(database, "DELETE FROM groups WHERE id = ?").bind(id).run();
  return database.changes() > 0;
}

std::vector<RightRow> load_rights(Database& database) {
  Statement query(database, "SELECT group_id, person, team, mask FROM rights");
  std::vector<RightRow> result;
  while (query.step()) {
    result.push_back({query.number(0), query.optional_number(1), query.optional_number(2),
                      static_cast<std::uint32_t>(query.number(3))});
  }
  return result;
}

void replace_rights(Database& database, std::int64_t group, const std::vector<RightRow>& rows) {
  Statement(database, "DELETE FROM rights WHERE group_id = ?").bind(group).run();
  for (const RightRow& row : rows) {
    Statement(database, "INSERT INTO rights(group_id, person, team, mask) VALUES(?, ?, ?, ?)")
        .bind(group)
        .bind(row.person)
        .bind(row.team)
        .bind(std::int64_t{row.mask})
        .run();
  }
}

std::vector<LoginRow> load_logins(Database& database) {
  Statement query(database, kLoginColumns);
  std::vector<LoginRow> result;
  while (query.step())
    result.push_back(login_of(query));
  return result;
}

std::optional<LoginRow> find_login(Database& database, std::int64_t id) {
  Statement query(database, (std::string(kLoginColumns) + " WHERE id = ?").c_str());
  if (!query.bind(id).step()) return std::nullopt;
  return login_of(query);
}

std::int64_t add_login(Database& database, const LoginRow& login) {
  Statement(database,
            "INSERT INTO logins(token_hash, person, stage, created_at, last_used, expires_at, idle_limit, "
            "address) VALUES(?, ?, ?, ?, ?, ?, ?, ?)")
      .bind(login.token_hash)
      .bind(login.person)
      .bind(stage_name(login.stage))
      .bind(login.created_at)
      .bind(login.last_used)
      .bind(login.expires_at)
      .bind(login.idle_limit)
      .bind(login.address)
      .run();
  return database.last_id();
}

bool update_login(Database& database, const LoginRow& login) {
  Statement(database,
            "UPDATE logins SET stage = ?, last_used = ?, expires_at = ?, idle_limit = ? WHERE id = ?")
      .bind(stage_name(login.stage))
      .bind(login.last_used)
      .bind(login.expires_at)
      .bind(login.idle_limit)
      .bind(login.id)
      .run();
  return database.changes() > 0;
}

void touch_logins(Database& database, const std::map<std::int64_t, std::int64_t>& last_used) {
  for (const auto& [id, when] : last_used) {
    Statement(database, "UPDATE logins SET last_used = ? WHERE id = ?").bind(when).bind(id).run();
  }
}

bool remove_login(Database& database, const Bytes& token_hash) {
  Statement(database, "DELETE FROM logins WHERE token_hash = ?").bind(token_hash).run();
  return database.changes() > 0;
}

void remove_logins_of(Database& database, std::int64_t person, const Bytes& keep) {
  Statement(database, "DELETE FROM logins WHERE person = ? AND token_hash <> ?")
      .bind(person)
      .bind(keep)
      .run();
}

std::vector<Setting> load_settings(Database& database) {
  Statement query(database, "SELECT key, value FROM settings");
  std::vector<Setting> result;
  while (query.step())
    result.push_back({query.text(0), query.text(1)});
  return result;
}

std::string keep_first(Database& database, const Setting& setting) {
  Statement(database, "INSERT INTO settings VALUES(?, ?) ON CONFLICT DO NOTHING")
      .bind(setting.key)
      .bind(setting.value)
      .run();
  Statement stored(database, "SELECT value FROM settings WHERE key = ?");
  stored.bind(setting.key).step();
  return stored.text(0);
}

void store_setting(Database& database, const Setting& setting) {
  Statement(database,
            "INSERT INTO settings VALUES(?, ?) ON CONFLICT(key) DO UPDATE SET value = excluded.value")
      .bind(setting.key)
      .bind(setting.value)
      .run();
}

}  // namespace vlk::relay
