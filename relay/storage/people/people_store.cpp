// The statements on the tables of people and their backup codes.
#include "relay/storage/people/people_store.h"

#include <utility>

namespace vlk::relay {
namespace {

constexpr std::pair<Role, std::string_view> kRoles[] = {
    {Role::Administrator, "administrator"},
    {Role::Representative, "representative"},
    {Role::Auditor, "auditor"},
};

constexpr char kColumns[] =
    "SELECT id, name, password, role, must_change, disabled, totp_secret, totp_last_step, created_at FROM "
    "people";

Person person_of(const Statement& row) {
  Person person;
  person.id = row.number(0);
  person.name = row.text(1);
  person.password = row.text(2);
  const auto role = role_of(row.text(3));
  if (!role) throw DatabaseError("The database has a person with an unknown role.");
  person.role = *role;
  person.must_change = row.number(4) != 0;
  person.disabled = row.number(5) != 0;
  person.totp_secret = row.bytes(6);
  person.totp_last_step = row.number(7);
  person.created_at = row.number(8);
  return person;
}

// Binds all columns but the id.
void bind_person(Statement& statement, const Person& person) {
  statement.bind(person.name)
      .bind(person.password)
      .bind(role_name(person.role))
      .bind(person.must_change)
      .bind(person.disabled);
  if (person.totp_secret.empty()) {
    statement.bind_null();
  } else {
    statement.bind(person.totp_secret);
  }
  statement.bind(person.totp_last_step).bind(person.created_at);
}

}  // namespace

std::string_view role_name(Role role) {
  for (const auto& [known, name] : kRoles) {
    if (known == role) return name;
  }
  return {};
}

std::optional<Role> role_of(std::string_view name) {
  for (const auto& [role, known] : kRoles) {
    if (known == name) return role;
  }
  return std::nullopt;
}

std::vector<Person> load_people(Database& database) {
  Statement query(database, kColumns);
  std::vector<Person> result;
  while (query.step())
    result.push_back(person_of(query));
  return result;
}

std::optional<Person> find_person(Database& database, const std::string& name) {
  Statement query(database, (std::string(kColumns) + " WHERE name = ?").c_str());
  if (!query.bind(name).step()) return std::nullopt;
  return person_of(query);
}

std::optional<Person> find_person(Database& database, std::int64_t id) {
  Statement query(database, (std::string(kColumns) + " WHERE id = ?").c_str());
  if (!query.bind(id).step()) return std::nullopt;
  return person_of(query);
}

std::optional<std::int64_t> add_person(Database& database, const Person& person) {
  Statement insert(database,
                   "INSERT INTO people(name, password, role, must_change, disabled, totp_secret, "
                   "totp_last_step, created_at) VALUES(?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO NOTHING");
  bind_person(insert, person);
  insert.run();
  if (database.changes() == 0) return std::nullopt;
  return database.last_id();
}

bool update_person(Database& database, const Person& person) {
  Statement update(database,
                   "UPDATE people SET name = ?, password = ?, role = ?, must_change = ?, disabled = ?, "
                   "totp_secret = ?, totp_last_step = ?, created_at = ? WHERE id = ?");
  bind_person(update, person);
  update.bind(person.id).run();
  return database.changes() > 0;
}

bool remove_person(Database& database, std::int64_t id) {
  Statement(database, "DELETE FROM people WHERE id = ?").bind(id).run();
  return database.changes() > 0;
}

std::vector<BackupCode> load_backup_codes(Database& database) {
  Statement query(database, "SELECT person, hash, used_at FROM backup_codes");
  std::vector<BackupCode> result;
  while (query.step())
    result.push_back({query.number(0), query.bytes(1), query.optional_number(2)});
  return result;
}

void replace_backup_codes(Database& database, std::int64_t person, const std::vector<Bytes>& hashes) {
  Statement(database, "DELETE FROM backup_codes WHERE person = ?").bind(person).run();
  for (const Bytes& hash : hashes) {
    Statement(database, "INSERT INTO backup_codes(person, hash) VALUES(?, ?)").bind(person).bind(hash).run();
  }
}

bool use_backup_code(Database& database, std::int64_t person, const Bytes& hash, std::int64_t when) {
  Statement(database, "UPDATE backup_codes SET used_at = ? WHERE person = ? AND hash = ? AND used_at IS NULL")
      .bind(when)
      .bind(person)
      .bind(hash)
      .run();
  return database.changes() > 0;
}

}  // namespace vlk::relay
