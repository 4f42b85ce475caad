// What the relay remembers: machines, representatives, their logins, and the audit trail. All in one SQLite
// file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "relay/storage/database.h"

namespace vlk::relay {

// Seconds since 1970.
std::int64_t wall_seconds();

struct AgentRecord {
  std::string id;
  std::string name;     // the display name given last
  std::string machine;  // the name it enrolled with
  std::string os;
  std::string hw_id;
  std::int64_t last_seen = 0;  // seconds since 1970
};

struct AuditRecord {
  std::string event;
  std::string representative;
  std::string agent;
  std::string address;
  std::string detail;
};

// Every operation throws DatabaseError when it fails, and has then changed nothing.
class Store {
 public:
  explicit Store(const std::string& file);

  std::vector<AgentRecord> agents();
  std::optional<std::vector<std::uint8_t>> agent_secret_hash(const std::string& id);
  void add_agent(const AgentRecord& agent, const std::vector<std::uint8_t>& secret_hash,
                 const std::string& address);
  void rename_agent(const std::string& id, const std::string& name);
  void touch_agents(const std::vector<std::string>& ids, std::int64_t when);
  void remove_agent(const std::string& id);

  bool has_users();
  std::optional<std::string> password_hash(const std::string& user);
  bool add_user(const std::string& user, const std::string& hash);  // false if the name is taken
  // Also ends the logins of that user but the one given. False if there is no such user.
  bool set_password(const std::string& user, const std::string& hash,
                    const std::vector<std::uint8_t>& keep_login);
  bool remove_user(const std::string& user);

  void add_login(const std::vector<std::uint8_t>& token_hash, const std::string& user, std::int64_t expires);
  std::optional<std::string> login_user(const std::vector<std::uint8_t>& token_hash);
  void remove_login(const std::vector<std::uint8_t>& token_hash);

  void audit(const std::vector<AuditRecord>& records);  // all or none

 private:
  void create_schema();
  int changes();
  Database database_;
};

}  // namespace vlk::relay
