// People, teams, groups of machines, and the rights of people in groups, as the relay keeps them in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "relay/base/limits.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/people/rights.h"
#include "relay/storage/people/access_store.h"
#include "relay/storage/people/people_store.h"

namespace vlk::relay {

using PersonId = std::int64_t;
using TeamId = std::int64_t;
using GroupId = std::int64_t;

// What an administrator has decided for the whole relay.
struct RelaySettings {
  std::set<Role> totp_required{};
  std::int64_t login_seconds = 0;
  std::int64_t idle_seconds = 0;    // 0 means no limit
  std::int64_t retention_days = 0;  // 0 means that rows of the trail are kept
};

// True for names of 1 to 64 bytes without control characters, quotes and backslashes, which do not begin or
// end with a space or begin with a parenthesis. Names are sent to agents, whose JSON reader supports few
// escapes; actors in the trail that are not people begin with a parenthesis.
[[nodiscard]] bool valid_person_name(std::string_view name);

// A copy of the stored state. Each change is stored first; then the state is read back and replaced here.
// Used on the relay's one thread.
class People {
 public:
  struct Contents {
    std::vector<Person> people{};
    std::vector<Team> teams{};
    std::vector<Group> groups{};
    std::vector<RightRow> rights{};
    std::vector<Invitation> invitations{};
    std::vector<BackupCode> backup_codes{};
    std::vector<Setting> settings{};
  };
  // Reads everything. To be called inside a transaction. Throws DatabaseError.
  [[nodiscard]] static Contents load(Database& database);

  // `changed` is called after each change, so that log-ins, running sessions and lists follow at once.
  void on_change(std::function<void()> changed) { changed_ = std::move(changed); }
  void replace(Contents contents);

  [[nodiscard]] const Contents& all() const { return contents_; }
  // Each returns null if there is none. The results are valid until the next change.
  [[nodiscard]] const Person* person(PersonId id) const;
  [[nodiscard]] const Person* person_named(std::string_view name) const;
  [[nodiscard]] const Team* team(TeamId id) const;
  [[nodiscard]] const Group* group(GroupId id) const;
  [[nodiscard]] std::vector<TeamId> teams_of(PersonId id) const;
  [[nodiscard]] std::size_t backup_codes_left(PersonId id) const;

  // The settings; `limits` has the values of those that nobody has changed.
  [[nodiscard]] RelaySettings settings(const Limits& limits) const;
  [[nodiscard]] bool totp_required(Role role) const;

  // An administrator has all rights; an auditor and a disabled person have none; a representative has what
  // was given to the person or to one of the person's teams.
  [[nodiscard]] Rights rights_of(PersonId id, GroupId group) const;
  // True if `id` is the only administrator who is not disabled. Such a person cannot be removed, disabled or
  // given another role.
  [[nodiscard]] bool is_last_administrator(PersonId id) const;

 private:
  const ThreadChecker thread_{};
  Contents contents_;
  std::map<PersonId, std::size_t> people_;                // index in contents_.people
  std::map<std::pair<PersonId, GroupId>, Rights> given_;  // to people and through their teams
  std::function<void()> changed_;
};

}  // namespace vlk::relay
