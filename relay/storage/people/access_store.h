// The stored groups of machines, the rights in them, the log-ins, and the settings.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/storage/database.h"

namespace vlk::relay {

// The group that always exists. Machines of a removed group move to it.
inline constexpr std::int64_t kFirstGroup = 1;

struct Group {
  std::int64_t id = 0;
  std::string name{};
  bool step_up = false;     // control needs the password or a code again
  bool ask_reason = false;  // a session needs a reason
  bool four_eyes = false;   // a session has only the right to see until a second person watches
};

// The rights of a person, or of a team's members, in a group. Either `person` or `team` is set.
struct RightRow {
  std::int64_t group = 0;
  std::optional<std::int64_t> person{};
  std::optional<std::int64_t> team{};
  std::uint32_t mask = 0;
};

// What a log-in may reach: only a stage of Full may do more than take the next step.
enum class LoginStage { Password, Totp, TotpSetup, Full };

[[nodiscard]] std::string_view stage_name(LoginStage stage);
// Throws DatabaseError for a name that no stage has.
[[nodiscard]] LoginStage stage_of(std::string_view name);

// Dates are in seconds since 1970.
struct LoginRow {
  std::int64_t id = 0;
  Bytes token_hash{};
  std::int64_t person = 0;
  LoginStage stage = LoginStage::Full;
  std::int64_t created_at = 0;
  std::int64_t last_used = 0;
  std::int64_t expires_at = 0;
  std::int64_t idle_limit = 0;  // in seconds; 0 means no limit
  std::string address{};
};

struct Setting {
  std::string key{};
  std::string value{};
};

// All functions are to be called inside a transaction and throw DatabaseError. Functions that return bool
// return false, and change nothing, if there is no such row.
[[nodiscard]] std::vector<Group> load_groups(Database& database);
// Returns the new group's id; nothing if the name exists already.
[[nodiscard]] std::optional<std::int64_t> add_group(Database& database, const Group& group);
bool update_group(Database& database, const Group& group);
// Moves the group's machines to the first group and removes the group with its rights and enrolment windows.
// Returns false for the first group too.
bool remove_group(Database& database, std::int64_t id);

[[nodiscard]] std::vector<RightRow> load_rights(Database& database);
// Removes all rights in the group and stores these instead.
void replace_rights(Database& database, std::int64_t group, const std::vector<RightRow>& rows);

[[nodiscard]] std::vector<LoginRow> load_logins(Database& database);
// Returns the new log-in's id.
[[nodiscard]] std::optional<LoginRow> find_login(Database& database, std::int64_t id);
std::int64_t add_login(Database& database, const LoginRow& login);
// Stores the stage, last_used, expires_at and idle_limit of the log-in with this id.
bool update_login(Database& database, const LoginRow& login);
// Stores when each log-in was used last, by the log-ins' ids.
void touch_logins(Database& database, const std::map<std::int64_t, std::int64_t>& last_used);
bool remove_login(Database& database, const Bytes& token_hash);
// Removes all log-ins of the person except one, which may be empty.
void remove_logins_of(Database& database, std::int64_t person, const Bytes& keep);

[[nodiscard]] std::vector<Setting> load_settings(Database& database);
// Stores the setting unless there is one with its key. Returns the value that is then stored.
[[nodiscard]] std::string keep_first(Database& database, const Setting& setting);
void store_setting(Database& database, const Setting& setting);

}  // namespace vlk::relay
