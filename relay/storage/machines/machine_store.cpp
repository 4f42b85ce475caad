// The statements on the tables of machines and enrolment windows.
#include "relay/storage/machines/machine_store.h"

#include <utility>

#include "relay/storage/engine/text_array.h"

namespace vlk::relay {
namespace {

constexpr std::pair<MachineState, std::string_view> kStates[] = {
    {MachineState::Waiting, "waiting"},         {MachineState::Approved, "approved"},
    {MachineState::Refused, "refused"},         {MachineState::Blocked, "blocked"},
    {MachineState::Quarantined, "quarantined"}, {MachineState::UsedTwice, "used-twice"},
};

constexpr char kColumns[] =
    "SELECT id, name, machine, os, hw_id, last_seen, secret_hash, enrolled_at, enrolled_from, group_id, "
    "state, reason, "
    "state_since, state_by FROM machines";

MachineRecord machine_of(const Statement& row) {
  MachineRecord machine;
  machine.id = row.text(0);
  machine.name = row.text(1);
  machine.machine = row.text(2);
  machine.os = row.text(3);
  machine.hw_id = row.text(4);
  machine.last_seen = row.number(5);
  machine.secret_hash = row.bytes(6);
  machine.enrolled_at = row.number(7);
  machine.enrolled_from = row.text(8);
  machine.group = row.number(9);
  machine.state = state_of(row.text(10));
  machine.reason = row.text(11);
  machine.state_since = row.number(12);
  machine.state_by = row.text(13);
  return machine;
}

}  // namespace

std::string_view state_name(MachineState state) {
  for (const auto& [known, name] : kStates) {
    if (known == state) return name;
  }
  return {};
}

MachineState state_of(std::string_view name) {
  for (const auto& [state, known] : kStates) {
    if (known == name) return state;
  }
  throw DatabaseError("The database has a machine with an unknown state.");
}

std::vector<MachineRecord> load_machines(Database& database) {
  Statement query(database, (std::string(kColumns) + " ORDER BY id").c_str());
  std::vector<MachineRecord> result;
  while (query.step())
    result.push_back(machine_of(query));
  return result;
}

std::optional<MachineRecord> find_machine(Database& database, const std::string& id) {
  Statement query(database, (std::string(kColumns) + " WHERE id = ?").c_str());
  if (!query.bind(id).step()) return std::nullopt;
  return machine_of(query);
}

void add_machine(Database& database, const MachineRecord& machine) {
  Statement(database,
            "INSERT INTO machines(id, name, machine, os, hw_id, last_seen, secret_hash, enrolled_at, "
            "enrolled_from, group_id, state, reason, state_since, state_by) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
      .bind(machine.id)
      .bind(machine.name)
      .bind(machine.machine)
      .bind(machine.os)
      .bind(machine.hw_id)
      .bind(machine.last_seen)
      .bind(machine.secret_hash)
      .bind(machine.enrolled_at)
      .bind(machine.enrolled_from)
      .bind(machine.group)
      .bind(state_name(machine.state))
      .bind(machine.reason)
      .bind(machine.state_since)
      .bind(machine.state_by)
      .run();
}

void rename_machine(Database& database, const std::string& id, const std::string& name) {
  Statement(database, "UPDATE machines SET name = ? WHERE id = ?").bind(name).bind(id).run();
}

void touch_machines(Database& database, const std::vector<std::string>& ids, std::int64_t when) {
  if (database.dialect() == Dialect::Postgresql) {
    // Each statement is a question to the server, and other relays wait for the transaction.
    Statement(database, "UPDATE machines SET last_seen = ? WHERE id = ANY(?::text[])")
        .bind(when)
        .bind(text_array(ids))
        .run();
    return;
  }
  for (const std::string& id : ids) {
    Statement(database, "UPDATE machines SET last_seen = ? WHERE id = ?").bind(when).bind(id).run();
  }
}

void move_machine(Database& database, const std::string& id, std::int64_t group) {
  Statement(database, "UPDATE machines SET group_id = ? WHERE id = ?").bind(group).bind(id).run();
}

void set_machine_state(Database& database, const MachineRecord& machine) {
  Statement(database, "UPDATE machines SET state = ?, reason = ?, state_since = ?, state_by = ? WHERE id = ?")
      .bind(state_name(machine.state))
      .bind(machine.reason)
      .bind(machine.state_since)
      .bind(machine.state_by)
      .bind(machine.id)
      .run();
}

void remove_machine(Database& database, const std::string& id) {
  Statement(database, "DELETE FROM machines WHERE id = ?").bind(id).run();
}

std::vector<EnrolmentWindow> load_enrolment_windows(Database& database) {
  Statement query(
      database,
      "SELECT id, group_id, until, machines_left, opened_by, opened_at FROM enrolment_windows ORDER BY id");
  std::vector<EnrolmentWindow> result;
  while (query.step()) {
    result.push_back({query.number(0), query.number(1), query.number(2), query.optional_number(3),
                      query.text(4), query.number(5)});
  }
  return result;
}

std::int64_t add_enrolment_window(Database& database, const EnrolmentWindow& window) {
  Statement(database,
            "INSERT INTO enrolment_windows(group_id, until, machines_left, opened_by, opened_at) "
            "VALUES(?, ?, ?, ?, ?)")
      .bind(window.group)
      .bind(window.until)
      .bind(window.machines_left)
      .bind(window.opened_by)
      .bind(window.opened_at)
      .run();
  return database.last_id();
}

bool use_enrolment_window(Database& database, std::int64_t id) {
  Statement(database,
            "UPDATE enrolment_windows SET machines_left = machines_left - 1 "
            "WHERE id = ? AND (machines_left > 0 OR machines_left IS NULL)")
      .bind(id)
      .run();
  return database.changes() > 0;
}

void remove_enrolment_window(Database& database, std::int64_t id) {
  Statement(database, "DELETE FROM enrolment_windows WHERE id = ?").bind(id).run();
}

}  // namespace vlk::relay
