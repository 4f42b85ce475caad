// The stored machines and the windows in which machines may enrol.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/storage/database.h"

namespace vlk::relay {

// What the relay allows a machine. A waiting machine is connected without power until it is approved or
// refused; a quarantined machine is connected without sessions. A refused or blocked machine, and one whose
// identity is used by two computers, cannot connect.
enum class MachineState { Waiting, Approved, Refused, Blocked, Quarantined, UsedTwice };

[[nodiscard]] constexpr bool may_connect(MachineState state) {
  return state == MachineState::Waiting || state == MachineState::Approved ||
         state == MachineState::Quarantined;
}
// Whether representatives see the machine.
[[nodiscard]] constexpr bool is_listed(MachineState state) {
  return state == MachineState::Approved || state == MachineState::Quarantined;
}

[[nodiscard]] std::string_view state_name(MachineState state);
// Throws DatabaseError for a name that no state has.
[[nodiscard]] MachineState state_of(std::string_view name);

// Dates are in seconds since 1970.
struct MachineRecord {
  std::string id{};
  std::string name{};     // the display name, as the agent sent it last
  std::string machine{};  // the computer's name at the enrolment
  std::string os{};
  std::string hw_id{};
  std::int64_t last_seen = 0;
  Bytes secret_hash{};
  std::int64_t enrolled_at = 0;
  std::string enrolled_from{};  // address with port
  std::int64_t group = 1;
  MachineState state = MachineState::Approved;
  std::string reason{};  // why it is blocked or quarantined
  std::int64_t state_since = 0;
  std::string state_by{};  // the person who set the state; empty for the relay itself
};

// A time in which new machines are approved into a group at once.
struct EnrolmentWindow {
  std::int64_t id = 0;
  std::int64_t group = 1;
  std::int64_t until = 0;
  std::optional<std::int64_t> machines_left{};  // without a number, only the time limits the window
  std::string opened_by{};
  std::int64_t opened_at = 0;
};

// All functions are to be called inside a transaction and throw DatabaseError.
[[nodiscard]] std::vector<MachineRecord> load_machines(Database& database);
[[nodiscard]] std::optional<MachineRecord> find_machine(Database& database, const std::string& id);
void add_machine(Database& database, const MachineRecord& machine);
void rename_machine(Database& database, const std::string& id, const std::string& name);
void touch_machines(Database& database, const std::vector<std::string>& ids, std::int64_t when);
void move_machine(Database& database, const std::string& id, std::int64_t group);
// Stores state, reason, state_since and state_by of the machine with the record's id.
void set_machine_state(Database& database, const MachineRecord& machine);
void remove_machine(Database& database, const std::string& id);

[[nodiscard]] std::vector<EnrolmentWindow> load_enrolment_windows(Database& database);
// Returns the new window's id.
std::int64_t add_enrolment_window(Database& database, const EnrolmentWindow& window);
// Counts one machine. A window without a number of machines does not change. Returns false if the window is
// gone or full, because machines enrolled at another relay.
[[nodiscard]] bool use_enrolment_window(Database& database, std::int64_t id);
void remove_enrolment_window(Database& database, std::int64_t id);

}  // namespace vlk::relay
