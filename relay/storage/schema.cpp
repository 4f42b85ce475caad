// The statements that create the tables and migrate older tables.
#include "relay/storage/schema.h"

#include <string>
#include <utility>
#include <vector>

#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/tables.h"

namespace vlk::relay {
namespace {

// Each enrolment creates a machine, even if its hw_id is known. An hw_id is not a secret: if it selected the
// row, anybody who knows another machine's hw_id could take over that machine's row.
constexpr char kMachines[] = R"sql(
CREATE TABLE groups(
  id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, step_up INTEGER NOT NULL DEFAULT 0,
  ask_reason INTEGER NOT NULL DEFAULT 0, four_eyes INTEGER NOT NULL DEFAULT 0);
INSERT INTO groups(id, name) VALUES(1, 'Machines');
CREATE TABLE machines(
  id TEXT PRIMARY KEY, secret_hash BLOB NOT NULL, name TEXT NOT NULL, machine TEXT NOT NULL, os TEXT NOT NULL,
  hw_id TEXT NOT NULL, enrolled_at INTEGER NOT NULL, enrolled_from TEXT NOT NULL, last_seen INTEGER NOT NULL,
  group_id INTEGER NOT NULL DEFAULT 1 REFERENCES groups(id),
  state TEXT NOT NULL CHECK(state IN ('waiting', 'approved', 'refused', 'blocked', 'quarantined', 'used-twice')),
  reason TEXT NOT NULL DEFAULT '', state_since INTEGER NOT NULL, state_by TEXT NOT NULL DEFAULT '');
CREATE INDEX machines_by_hw_id ON machines(hw_id);
CREATE INDEX machines_by_group ON machines(group_id);
CREATE TABLE enrolment_windows(
  id INTEGER PRIMARY KEY AUTOINCREMENT, group_id INTEGER NOT NULL REFERENCES groups(id) ON DELETE CASCADE,
  until INTEGER NOT NULL, machines_left INTEGER, opened_by TEXT NOT NULL, opened_at INTEGER NOT NULL);
)sql";

constexpr char kPeople[] = R"sql(
CREATE TABLE people(
  id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, password TEXT NOT NULL,
  role TEXT NOT NULL CHECK(role IN ('administrator', 'representative', 'auditor')),
  must_change INTEGER NOT NULL DEFAULT 0, disabled INTEGER NOT NULL DEFAULT 0, totp_secret BLOB,
  totp_last_step INTEGER NOT NULL DEFAULT 0, created_at INTEGER NOT NULL);
CREATE TABLE backup_codes(
  person INTEGER NOT NULL REFERENCES people(id) ON DELETE CASCADE, hash BLOB NOT NULL, used_at INTEGER,
  PRIMARY KEY(person, hash));
CREATE TABLE teams(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE);
CREATE TABLE team_members(
  team INTEGER NOT NULL REFERENCES teams(id) ON DELETE CASCADE,
  person INTEGER NOT NULL REFERENCES people(id) ON DELETE CASCADE, PRIMARY KEY(team, person));
CREATE INDEX team_members_by_person ON team_members(person);
CREATE TABLE rights(
  group_id INTEGER NOT NULL REFERENCES groups(id) ON DELETE CASCADE,
  person INTEGER REFERENCES people(id) ON DELETE CASCADE, team INTEGER REFERENCES teams(id) ON DELETE CASCADE,
  mask INTEGER NOT NULL, CHECK((person IS NULL) <> (team IS NULL)));
CREATE UNIQUE INDEX rights_of_person ON rights(group_id, person) WHERE person IS NOT NULL;
CREATE UNIQUE INDEX rights_of_team ON rights(group_id, team) WHERE team IS NOT NULL;
CREATE TABLE invitations(
  id INTEGER PRIMARY KEY AUTOINCREMENT, token_hash BLOB NOT NULL UNIQUE, name TEXT NOT NULL, role TEXT NOT NULL,
  teams TEXT NOT NULL, expires_at INTEGER NOT NULL, made_by TEXT NOT NULL);
CREATE TABLE logins(
  id INTEGER PRIMARY KEY AUTOINCREMENT, token_hash BLOB NOT NULL UNIQUE,
  person INTEGER NOT NULL REFERENCES people(id) ON DELETE CASCADE,
  stage TEXT NOT NULL CHECK(stage IN ('password', 'totp', 'totp-setup', 'full')),
  created_at INTEGER NOT NULL, last_used INTEGER NOT NULL, expires_at INTEGER NOT NULL,
  idle_limit INTEGER NOT NULL, address TEXT NOT NULL);
CREATE INDEX logins_by_person ON logins(person);
CREATE TABLE settings(key TEXT PRIMARY KEY, value TEXT NOT NULL);
)sql";

// For several relays with one database. What these tables have is gone with the relays: it is not logged, so
// a crash of the server empties them, and the relays write them again.
constexpr char kRelays[] = R"sql(
CREATE TABLE relays(
  id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, address TEXT NOT NULL,
  started_at INTEGER NOT NULL, heard_at INTEGER NOT NULL, draining INTEGER NOT NULL DEFAULT 0);
CREATE TABLE presence(
  machine TEXT PRIMARY KEY, relay INTEGER NOT NULL REFERENCES relays(id) ON DELETE CASCADE);
CREATE INDEX presence_by_relay ON presence(relay);
CREATE TABLE tickets(
  token_hash BLOB PRIMARY KEY, relay INTEGER NOT NULL REFERENCES relays(id) ON DELETE CASCADE,
  login INTEGER NOT NULL REFERENCES logins(id) ON DELETE CASCADE,
  home TEXT NOT NULL, expires_at INTEGER NOT NULL);
)sql";

// Reports each change of a table to the other relays that use the database. What a relay writes all the time
// is not among it: the rows of the trail, and when a machine or a log-in was last seen.
constexpr char kReports[] = R"sql(
CREATE FUNCTION report_change() RETURNS trigger LANGUAGE plpgsql AS $$
BEGIN
  PERFORM pg_notify('vantelink_' || md5(current_schema()), TG_TABLE_NAME);
  RETURN NULL;
END $$;
)sql";

// The tables whose changes are reported, and the columns of each that count; none for all.
constexpr std::pair<const char*, const char*> kReported[] = {
    {"groups", ""},
    {"machines", "name, machine, os, secret_hash, group_id, state, reason, state_since, state_by"},
    {"enrolment_windows", ""},
    {"people", ""},
    {"backup_codes", ""},
    {"teams", ""},
    {"team_members", ""},
    {"rights", ""},
    {"invitations", ""},
    {"logins", "stage, expires_at, idle_limit"},
    {"settings", ""},
    {"relays", "address, draining"},
};

constexpr char kSetOldAside[] = R"sql(
DROP INDEX logins_by_user;
ALTER TABLE logins RENAME TO old_logins;
)sql";

// A person of version 1 could do everything, so the person becomes an administrator. A log-in of version 1
// had no limit for idle time; 0 stands for none.
constexpr char kCopyOld[] = R"sql(
INSERT INTO people(name, password, role, created_at) SELECT name, password, 'administrator', created_at FROM users;
INSERT INTO logins(token_hash, person, stage, created_at, last_used, expires_at, idle_limit, address)
  SELECT token_hash, people.id, 'full', unixepoch(), unixepoch(), expires_at, 0, ''
  FROM old_logins JOIN people ON people.name = old_logins.user;
INSERT INTO machines(id, secret_hash, name, machine, os, hw_id, enrolled_at, enrolled_from, last_seen, state,
                     state_since)
  SELECT id, secret_hash, name, machine, os, hw_id, enrolled_at, enrolled_from, last_seen, 'approved', enrolled_at
  FROM agents;
)sql";

constexpr char kDropOld[] = "DROP TABLE old_logins; DROP TABLE users; DROP TABLE agents; DROP TABLE audit;";

constexpr std::size_t kRowsPerStep = 1000;

// The rows are appended like new rows, in steps that bound the memory that they take.
void copy_audit_rows(Database& database) {
  Statement old(database,
                "SELECT time, event, representative, agent, address, detail FROM audit ORDER BY id");
  std::vector<TrailEntry> rows;
  const auto append = [&] {
    append_trail(database, rows);
    rows.clear();
  };
  while (old.step()) {
    rows.push_back(trail_entry<TrailKind::TrailImported>({old.text(2), old.text(3), old.text(4), {}},
                                                         old.text(1), old.text(5)));
    rows.back().time_ms = old.number(0) * 1000;
    if (rows.size() == kRowsPerStep) append();
  }
  append();
}

void report_change_of(Database& database, const std::string& table, const std::string& columns) {
  const std::string update = columns.empty() ? "UPDATE" : "UPDATE OF " + columns;
  database.execute(("CREATE TRIGGER report_" + table + " AFTER INSERT OR DELETE OR " + update + " ON " +
                    table + " FOR EACH STATEMENT EXECUTE FUNCTION report_change()")
                       .c_str());
}

void report_changes(Database& database) {
  database.execute(kReports);
  for (const auto& [table, columns] : kReported)
    report_change_of(database, table, columns);
}

void create_relays(Database& database) {
  std::string sql = kRelays;
  if (database.dialect() == Dialect::Postgresql) {
    for (std::size_t at = 0; (at = sql.find("CREATE TABLE", at)) != std::string::npos; at += 20)
      sql.insert(at + 6, " UNLOGGED");
  }
  database.define(sql);
}

void create_tables(Database& database) {
  database.define(kMachines);
  database.define(kPeople);
  create_trail(database);
  create_relays(database);
  if (database.dialect() == Dialect::Sqlite) return;
  // The first group was stored with its number.
  database.execute("SELECT setval(pg_get_serial_sequence('groups', 'id'), 1)");
  report_changes(database);
}

void migrate_from_1(Database& database) {
  database.execute(kSetOldAside);
  create_tables(database);
  database.execute(kCopyOld);
  copy_audit_rows(database);
  database.execute(kDropOld);
}

}  // namespace

std::int64_t schema_version(Database& database) {
  return database.engine().version();
}

void prepare_schema(Database& database) {
  Transaction transaction(database);
  const std::int64_t found = schema_version(database);
  if (found > kSchemaVersion) {
    throw DatabaseError("The database was written by a newer version of the relay; it is left as it is.");
  }
  if (found == 0) create_tables(database);
  if (found == 1) migrate_from_1(database);
  if (found == 2) database.execute("ALTER TABLE groups ADD COLUMN four_eyes INTEGER NOT NULL DEFAULT 0");
  if (found == 2 || found == 3) {
    create_relays(database);
    if (database.dialect() == Dialect::Postgresql) report_change_of(database, "relays", "address, draining");
  }
  if (found < kSchemaVersion) database.engine().set_version(kSchemaVersion);
  transaction.commit();
}

}  // namespace vlk::relay
