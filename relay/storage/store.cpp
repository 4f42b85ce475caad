// The tables of the relay's database and the statements on them.
#include "relay/storage/store.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kSchemaVersion = 1;

// Each enrolment creates a row, even if its hw_id is known. An hw_id is not a secret: if it selected the
// row, anybody who knows another machine's hw_id could take over that machine's row, which representatives
// trust. After a reinstallation the old row remains; it can be deleted in the console.
constexpr char kSchema[] = R"sql(
CREATE TABLE agents(
  id TEXT PRIMARY KEY, secret_hash BLOB NOT NULL, name TEXT NOT NULL, machine TEXT NOT NULL, os TEXT NOT NULL,
  hw_id TEXT NOT NULL, enrolled_at INTEGER NOT NULL, enrolled_from TEXT NOT NULL, last_seen INTEGER NOT NULL);
CREATE TABLE users(name TEXT PRIMARY KEY, password TEXT NOT NULL, created_at INTEGER NOT NULL);
CREATE TABLE logins(
  token_hash BLOB PRIMARY KEY, user TEXT NOT NULL REFERENCES users(name) ON DELETE CASCADE,
  expires_at INTEGER NOT NULL);
CREATE INDEX logins_by_user ON logins(user);
CREATE TABLE audit(
  id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, event TEXT NOT NULL, representative TEXT NOT NULL,
  agent TEXT NOT NULL, address TEXT NOT NULL, detail TEXT NOT NULL);
PRAGMA user_version = 1;
)sql";

}  // namespace

Store::Store(const std::string& file) : database_(file) {
  create_schema();
}

void Store::create_schema() {
  Transaction transaction(database_);
  Statement version(database_, "PRAGMA user_version");
  version.step();
  const std::int64_t found = version.number(0);
  version.run();
  if (found > kSchemaVersion) {
    throw DatabaseError("The database was written by a newer version of the relay; it is left as it is.");
  }
  if (found == 0) database_.execute(kSchema);
  transaction.commit();
}

std::vector<AgentRecord> Store::agents() {
  Statement query(database_, "SELECT id, name, machine, os, hw_id, last_seen FROM agents");
  std::vector<AgentRecord> result;
  while (query.step()) {
    result.push_back(
        {query.text(0), query.text(1), query.text(2), query.text(3), query.text(4), query.number(5)});
  }
  return result;
}

std::optional<Bytes> Store::agent_secret_hash(const std::string& id) {
  Statement query(database_, "SELECT secret_hash FROM agents WHERE id = ?");
  if (!query.bind(id).step()) return std::nullopt;
  return query.bytes(0);
}

void Store::add_agent(const AgentRecord& agent, const Bytes& secret_hash, const std::string& address) {
  Transaction transaction(database_);
  Statement(database_, "INSERT INTO agents VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)")
      .bind(agent.id)
      .bind(secret_hash)
      .bind(agent.name)
      .bind(agent.machine)
      .bind(agent.os)
      .bind(agent.hw_id)
      .bind(agent.last_seen)
      .bind(address)
      .bind(agent.last_seen)
      .run();
  transaction.commit();
}

void Store::rename_agent(const std::string& id, const std::string& name) {
  Transaction transaction(database_);
  Statement(database_, "UPDATE agents SET name = ? WHERE id = ?").bind(name).bind(id).run();
  transaction.commit();
}

void Store::touch_agents(const std::vector<std::string>& ids, std::int64_t when) {
  Transaction transaction(database_);
  for (const std::string& id : ids) {
    Statement(database_, "UPDATE agents SET last_seen = ? WHERE id = ?").bind(when).bind(id).run();
  }
  transaction.commit();
}

void Store::remove_agent(const std::string& id) {
  Transaction transaction(database_);
  Statement(database_, "DELETE FROM agents WHERE id = ?").bind(id).run();
  transaction.commit();
}

bool Store::has_users() {
  return Statement(database_, "SELECT 1 FROM users LIMIT 1").step();
}

std::optional<std::string> Store::password_hash(const std::string& user) {
  Statement query(database_, "SELECT password FROM users WHERE name = ?");
  if (!query.bind(user).step()) return std::nullopt;
  return query.text(0);
}

int Store::changes() {
  Statement query(database_, "SELECT changes()");
  query.step();
  return static_cast<int>(query.number(0));
}

bool Store::add_user(const std::string& user, const std::string& hash) {
  Transaction transaction(database_);
  Statement(database_, "INSERT INTO users VALUES(?, ?, ?) ON CONFLICT DO NOTHING")
      .bind(user)
      .bind(hash)
      .bind(wall_seconds())
      .run();
  const bool added = changes() > 0;
  transaction.commit();
  return added;
}

bool Store::set_password(const std::string& user, const std::string& hash, const Bytes& keep_login) {
  Transaction transaction(database_);
  Statement(database_, "UPDATE users SET password = ? WHERE name = ?").bind(hash).bind(user).run();
  if (changes() == 0) return false;
  Statement(database_, "DELETE FROM logins WHERE user = ? AND token_hash <> ?")
      .bind(user)
      .bind(keep_login)
      .run();
  transaction.commit();
  return true;
}

bool Store::remove_user(const std::string& user) {
  Transaction transaction(database_);
  Statement(database_, "DELETE FROM users WHERE name = ?").bind(user).run();
  const bool removed = changes() > 0;
  transaction.commit();
  return removed;
}

void Store::add_login(const Bytes& token_hash, const std::string& user, std::int64_t expires) {
  Transaction transaction(database_);
  Statement(database_, "DELETE FROM logins WHERE expires_at <= ?").bind(wall_seconds()).run();
  Statement(database_, "INSERT INTO logins VALUES(?, ?, ?)").bind(token_hash).bind(user).bind(expires).run();
  transaction.commit();
}

std::optional<std::string> Store::login_user(const Bytes& token_hash) {
  Statement query(database_, "SELECT user FROM logins WHERE token_hash = ? AND expires_at > ?");
  if (!query.bind(token_hash).bind(wall_seconds()).step()) return std::nullopt;
  return query.text(0);
}

void Store::remove_login(const Bytes& token_hash) {
  Transaction transaction(database_);
  Statement(database_, "DELETE FROM logins WHERE token_hash = ?").bind(token_hash).run();
  transaction.commit();
}

void Store::audit(const std::vector<AuditRecord>& records) {
  Transaction transaction(database_);
  for (const AuditRecord& record : records) {
    Statement(
        database_,
        "INSERT INTO audit(time, event, representative, agent, address, detail) VALUES(?, ?, ?, ?, ?, ?)")
        .bind(wall_seconds())
        .bind(record.event)
        .bind(record.representative)
        .bind(record.agent)
        .bind(record.address)
        .bind(record.detail)
        .run();
  }
  transaction.commit();
}

}  // namespace vlk::relay
