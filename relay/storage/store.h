// The relay's stored state: machines, representatives, their log-ins, and the audit trail, all in one SQLite
// file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/storage/audit_record.h"
#include "relay/storage/database.h"

namespace vlk::relay {

struct AgentRecord {
  std::string id;
  std::string name;     // the display name, as the agent sent it last
  std::string machine;  // the computer's name at the enrolment
  std::string os;
  std::string hw_id;
  std::int64_t last_seen = 0;  // seconds since 1970
};

// Each function throws DatabaseError if it fails. A function that failed has changed nothing.
class Store {
 public:
  explicit Store(const std::string& file);

  [[nodiscard]] std::vector<AgentRecord> agents();
  [[nodiscard]] std::optional<Bytes> agent_secret_hash(const std::string& id);
  void add_agent(const AgentRecord& agent, const Bytes& secret_hash, const std::string& address);
  void rename_agent(const std::string& id, const std::string& name);
  void touch_agents(const std::vector<std::string>& ids, std::int64_t when);
  void remove_agent(const std::string& id);

  [[nodiscard]] bool has_users();
  [[nodiscard]] std::optional<std::string> password_hash(const std::string& user);
  // Adds a representative. Returns false if the name exists already.
  bool add_user(const std::string& user, const std::string& hash);
  // Changes the password and ends the user's log-ins, except `keep_login`. Returns false if there is no such
  // user.
  bool set_password(const std::string& user, const std::string& hash, const Bytes& keep_login);
  // Removes the user and ends the user's log-ins. Returns false if there is no such user.
  [[nodiscard]] bool remove_user(const std::string& user);

  // `expires` is in seconds since 1970.
  void add_login(const Bytes& token_hash, const std::string& user, std::int64_t expires);
  // The user of this log-in; nothing if the log-in is unknown or has ended.
  [[nodiscard]] std::optional<std::string> login_user(const Bytes& token_hash);
  void remove_login(const Bytes& token_hash);

  // Writes all records in one transaction.
  void audit(const std::vector<AuditRecord>& records);

 private:
  void create_schema();
  int changes();
  Database database_;
};

}  // namespace vlk::relay
