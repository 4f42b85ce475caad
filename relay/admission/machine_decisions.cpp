// Carries out administrators' decisions: check, store, apply.
#include "relay/admission/machine_decisions.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "relay/storage/cluster/relay_store.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

using enum MachineState;
using Why = DecisionRefused::Why;

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr char kDisconnected[] = "disconnected";

TrailSubject subject(const MachineDecisions::By& by, const std::string& machine = {}) {
  return {.actor = by.person, .machine = machine, .address = by.address};
}

void check_reason(const std::string& reason) {
  if (reason.empty()) throw DecisionRefused(Why::Invalid, "A reason is needed.");
  if (reason.size() > MachineDecisions::kReasonBytes)
    throw DecisionRefused(Why::Invalid, "The reason is too long.");
}

void set_state(MachineRecord& machine, MachineState state, const std::string& reason,
               const std::string& person) {
  machine.state = state;
  machine.reason = reason;
  machine.state_since = wall_seconds();
  machine.state_by = person;
}

}  // namespace

// The new record of one machine, or its removal, and the row about it.
struct MachineDecisions::Change {
  MachineRecord machine;
  TrailEntry row;
  bool removed = false;
  std::string cut{};  // why the machine's connection is cut; empty to keep it
};

std::vector<MachineRecord> MachineDecisions::checked(const Ids& ids, std::vector<MachineState> states,
                                                     const char* wrong_state) const {
  if (ids.empty()) throw DecisionRefused(Why::Invalid, "No machine is named.");
  if (ids.size() > kMachines) throw DecisionRefused(Why::Invalid, "Too many machines are named.");
  std::vector<MachineRecord> machines;
  for (const std::string& id : std::set<std::string>(ids.begin(), ids.end())) {
    const MachineRecord* machine = parts_.machines.find(id);
    if (!machine) throw DecisionRefused(Why::Unknown, "There is no such machine.");
    if (!states.empty() && std::find(states.begin(), states.end(), machine->state) == states.end())
      throw DecisionRefused(Why::Conflict, '"' + machine->name + "\" " + wrong_state);
    machines.push_back(*machine);
  }
  return machines;
}

std::string MachineDecisions::checked_group(std::int64_t group) const {
  const Group* found = parts_.people.group(group);
  if (!found) throw DecisionRefused(Why::Unknown, "There is no such group.");
  return found->name;
}

MachineDecisions::Done MachineDecisions::carry_out(std::vector<Change> changes) {
  // Their connections are cut by the relays that have them.
  std::vector<std::string> elsewhere;
  for (const Change& change : changes) {
    if (change.cut == kDisconnected && parts_.machines.elsewhere(change.machine.id) != 0)
      elsewhere.push_back(change.machine.id);
  }
  const auto work = [changes, elsewhere, own = parts_.cluster.own().id](Store& store) {
    if (!elsewhere.empty()) report_disconnection(store.database(), own, elsewhere);
    for (const Change& change : changes) {
      Database& database = store.database();
      if (change.removed) {
        remove_machine(database, change.machine.id);
      } else {
        set_machine_state(database, change.machine);
        move_machine(database, change.machine.id, change.machine.group);
      }
      append_trail(database, std::array{change.row});
    }
  };
  co_await parts_.database.run(work);
  for (const Change& change : changes)
    apply(change);
  parts_.sessions.refresh_rights();  // machines can have moved to other groups
}

// The machine may have changed its name or its connection while the decision was stored.
void MachineDecisions::apply(const Change& change) {
  const std::string& id = change.machine.id;
  const auto peer = parts_.machines.connection(id);
  const MachineState state = change.machine.state;
  if (peer && !change.cut.empty()) {
    parts_.sessions.end_all_of(*peer, change.cut);
    peer->channel->cut("an administrator decided: " + change.cut);
  } else if (peer && state != Approved) {
    parts_.sessions.end_all_of(*peer, "quarantined", true);
  }
  if (change.removed) {
    parts_.machines.remove(id);
    parts_.transfers.settle(id, Clock::time_point::max());
    return;
  }
  parts_.machines.change(id, [&](MachineRecord& record) {
    record.group = change.machine.group;
    record.state = state;
    record.reason = change.machine.reason;
    record.state_since = change.machine.state_since;
    record.state_by = change.machine.state_by;
  });
}

MachineDecisions::Done MachineDecisions::approve(const By& by, const Ids& ids, std::int64_t group) {
  const std::string name = checked_group(group);
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {Waiting}, "does not wait for approval.")) {
    set_state(machine, Approved, "", by.person);
    machine.group = group;
    auto row =
        trail_entry<TrailKind::MachineApproved>(subject(by, machine.id), machine.name, name, std::nullopt);
    changes.push_back({std::move(machine), std::move(row)});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::replace(const By& by, const std::string& id,
                                                 const std::string& older) {
  MachineRecord machine = checked({id}, {Waiting}, "does not wait for approval.").front();
  const MachineRecord before =
      checked({older}, {Approved, Blocked, Quarantined, UsedTwice}, "cannot be replaced.").front();
  if (parts_.machines.connection(older) || parts_.machines.elsewhere(older) != 0)
    throw DecisionRefused(Why::Conflict, '"' + before.name + "\" is connected; it cannot be replaced.");
  set_state(machine, Approved, "", by.person);
  machine.group = before.group;
  const Group* group = parts_.people.group(before.group);
  std::vector<Change> changes;
  auto approved = trail_entry<TrailKind::MachineApproved>(subject(by, id), machine.name,
                                                          group ? group->name : std::string(), older);
  auto removed = trail_entry<TrailKind::MachineForgotten>(subject(by, older), before.name);
  changes.push_back({std::move(machine), std::move(approved)});
  changes.push_back({before, std::move(removed), true, "removed"});
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::refuse(const By& by, const Ids& ids) {
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {Waiting}, "does not wait for approval.")) {
    set_state(machine, Refused, "", by.person);
    auto row = trail_entry<TrailKind::MachineRefused>(subject(by, machine.id), machine.name);
    changes.push_back({std::move(machine), std::move(row), false, "refused"});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::block(const By& by, const Ids& ids, const std::string& reason) {
  check_reason(reason);
  std::vector<Change> changes;
  for (MachineRecord& machine :
       checked(ids, {Approved, Quarantined, UsedTwice}, "is not approved, so it cannot be blocked.")) {
    set_state(machine, Blocked, reason, by.person);
    auto row = trail_entry<TrailKind::MachineBlocked>(subject(by, machine.id), machine.name, reason);
    changes.push_back({std::move(machine), std::move(row), false, "blocked"});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::unblock(const By& by, const Ids& ids) {
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {Refused, Blocked}, "is not blocked.")) {
    set_state(machine, machine.state == Refused ? Waiting : Approved, "", by.person);
    auto row = trail_entry<TrailKind::MachineUnblocked>(subject(by, machine.id), machine.name);
    changes.push_back({std::move(machine), std::move(row)});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::quarantine(const By& by, const Ids& ids, const std::string& reason) {
  check_reason(reason);
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {Approved, Quarantined}, "is not approved.")) {
    set_state(machine, Quarantined, reason, by.person);
    auto row = trail_entry<TrailKind::MachineQuarantined>(subject(by, machine.id), machine.name, reason);
    changes.push_back({std::move(machine), std::move(row)});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::release(const By& by, const Ids& ids) {
  std::vector<Change> changes;
  for (MachineRecord& machine :
       checked(ids, {Quarantined, UsedTwice}, "is not in quarantine, and its identity is used once.")) {
    set_state(machine, Approved, "", by.person);
    admission_.fights().forget(machine.id);
    auto row = trail_entry<TrailKind::MachineReleased>(subject(by, machine.id), machine.name);
    changes.push_back({std::move(machine), std::move(row)});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::disconnect(const By& by, const Ids& ids) {
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {}, "")) {
    auto row = trail_entry<TrailKind::MachineDisconnected>(subject(by, machine.id), machine.name);
    changes.push_back({std::move(machine), std::move(row), false, kDisconnected});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::move(const By& by, const Ids& ids, std::int64_t group) {
  const std::string name = checked_group(group);
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {}, "")) {
    const Group* before = parts_.people.group(machine.group);
    machine.group = group;
    auto row = trail_entry<TrailKind::MachineMoved>(subject(by, machine.id), machine.name, name,
                                                    before ? before->name : std::string());
    changes.push_back({std::move(machine), std::move(row)});
  }
  return carry_out(std::move(changes));
}

MachineDecisions::Done MachineDecisions::remove(const By& by, const Ids& ids) {
  std::vector<Change> changes;
  for (MachineRecord& machine : checked(ids, {}, "")) {
    auto row = trail_entry<TrailKind::MachineForgotten>(subject(by, machine.id), machine.name);
    changes.push_back({std::move(machine), std::move(row), true, "removed"});
  }
  return carry_out(std::move(changes));
}

boost::asio::awaitable<std::int64_t> MachineDecisions::open_enrolment(const By& by, std::int64_t group,
                                                                      std::optional<std::int64_t> minutes,
                                                                      std::optional<std::int64_t> machines) {
  const std::string name = checked_group(group);
  if (!minutes && !machines)
    throw DecisionRefused(Why::Invalid, "The number of minutes or of machines is needed.");
  const auto out_of_range = [](std::optional<std::int64_t> value, std::int64_t largest) {
    return value && (*value < 1 || *value > largest);
  };
  if (out_of_range(minutes, kWindowMinutes) || out_of_range(machines, kWindowMachines)) {
    throw DecisionRefused(Why::Invalid, "A window has at most " + std::to_string(kWindowMinutes) +
                                            " minutes and " + std::to_string(kWindowMachines) + " machines.");
  }
  EnrolmentWindow window;
  window.group = group;
  window.opened_by = by.person;
  window.opened_at = wall_seconds();
  window.until = window.opened_at + minutes.value_or(kWindowMinutes) * kSecondsPerMinute;
  window.machines_left = machines;
  return store_window(std::move(window),
                      trail_entry<TrailKind::EnrolmentOpened>(subject(by), name, minutes, machines));
}

boost::asio::awaitable<std::int64_t> MachineDecisions::store_window(EnrolmentWindow window, TrailEntry row) {
  const auto work = [window, row](Store& store) {
    append_trail(store.database(), std::array{row});
    return add_enrolment_window(store.database(), window);
  };
  window.id = co_await parts_.database.run(work);
  admission_.windows().add(window);
  co_return window.id;
}

MachineDecisions::Done MachineDecisions::close_enrolment(By by, std::int64_t id) {
  const auto& windows = admission_.windows().all();
  const auto found =
      std::find_if(windows.begin(), windows.end(), [&](const auto& window) { return window.id == id; });
  if (found == windows.end()) throw DecisionRefused(Why::Unknown, "There is no such enrolment window.");
  const Group* group = parts_.people.group(found->group);
  const auto row =
      trail_entry<TrailKind::EnrolmentClosed>(subject(by), group ? group->name : std::string(), "closed");
  const auto work = [id, row](Store& store) {
    remove_enrolment_window(store.database(), id);
    append_trail(store.database(), std::array{row});
  };
  co_await parts_.database.run(work);
  admission_.windows().remove(id);
}

}  // namespace vlk::relay
