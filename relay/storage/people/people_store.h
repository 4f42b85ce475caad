// The stored people: their passwords, roles, backup codes, teams and invitations.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/storage/database.h"

namespace vlk::relay {

enum class Role { Administrator, Representative, Auditor };

[[nodiscard]] std::string_view role_name(Role role);
// Nothing for a name that no role has.
[[nodiscard]] std::optional<Role> role_of(std::string_view name);

// Dates are in seconds since 1970.
struct Person {
  std::int64_t id = 0;
  std::string name{};
  std::string password{};  // its hash
  Role role = Role::Representative;
  bool must_change = false;  // the password is a one-time password
  bool disabled = false;
  Bytes totp_secret{};              // empty without TOTP
  std::int64_t totp_last_step = 0;  // of the last code that was used
  std::int64_t created_at = 0;
};

struct Team {
  std::int64_t id = 0;
  std::string name{};
  std::vector<std::int64_t> members{};  // ids of people
};

struct Invitation {
  std::int64_t id = 0;
  Bytes token_hash{};
  std::string name{};
  Role role = Role::Representative;
  std::vector<std::int64_t> teams{};
  std::int64_t expires_at = 0;
  std::string made_by{};
};

struct BackupCode {
  std::int64_t person = 0;
  Bytes hash{};
  std::optional<std::int64_t> used_at{};
};

// All functions are to be called inside a transaction and throw DatabaseError. Functions that return bool
// return false, and change nothing, if there is no such row.
[[nodiscard]] std::vector<Person> load_people(Database& database);
[[nodiscard]] std::optional<Person> find_person(Database& database, const std::string& name);
[[nodiscard]] std::optional<Person> find_person(Database& database, std::int64_t id);
// Returns the new person's id; nothing if the name exists already. The member `id` is not used.
[[nodiscard]] std::optional<std::int64_t> add_person(Database& database, const Person& person);
// Stores all members of the person with this id. A name that another person has is a DatabaseError.
bool update_person(Database& database, const Person& person);
// Removes the person with all that belongs to them: log-ins, rights, backup codes, memberships.
bool remove_person(Database& database, std::int64_t id);

[[nodiscard]] std::vector<BackupCode> load_backup_codes(Database& database);
// Removes the person's backup codes and stores these instead.
void replace_backup_codes(Database& database, std::int64_t person, const std::vector<Bytes>& hashes);
// Marks a backup code as used. Returns false if there is no such code or it was used before.
[[nodiscard]] bool use_backup_code(Database& database, std::int64_t person, const Bytes& hash,
                                   std::int64_t when);

[[nodiscard]] std::vector<Team> load_teams(Database& database);
// Returns the new team's id; nothing if the name exists already.
[[nodiscard]] std::optional<std::int64_t> add_team(Database& database, const Team& team);
bool update_team(Database& database, const Team& team);
bool remove_team(Database& database, std::int64_t id);

[[nodiscard]] std::vector<Invitation> load_invitations(Database& database);
// Returns the new invitation's id.
std::int64_t add_invitation(Database& database, const Invitation& invitation);
bool remove_invitation(Database& database, std::int64_t id);

}  // namespace vlk::relay
