// Decides about machines without an administrator.
#include "relay/admission/admission.h"

#include <array>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

#include "relay/base/source/source.h"
#include "relay/storage/trail/chain.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

std::vector<EnrolmentWindow> load(Store& store) {
  return load_enrolment_windows(store.database());
}

asio::awaitable<void> load_again(Parts& parts, EnrolmentWindows& windows, const Log& log) {
  try {
    auto stored = co_await parts.database.run_reading(load);
    windows.load(std::move(stored));
  } catch (const std::exception& failure) {
    log.write("", "", std::string("the enrolment windows are not read: ") + failure.what());
  }
}

}  // namespace

Admission::Admission(Parts& parts, const Log& log) : parts_(parts), log_(log) {
  windows_.load(parts.database.run_and_wait(load));
}

void Admission::reload() {
  asio::co_spawn(parts_.database.loop(), load_again(parts_, windows_, log_), asio::detached);
}

std::string Admission::group_name(std::int64_t group) const {
  const Group* found = parts_.people.group(group);
  return found ? found->name : std::string();
}

bool Admission::make_room(const std::string& address) {
  thread_.check();
  const std::string source = source_in(address);
  std::size_t waiting = 0;
  std::size_t from_source = 0;
  const MachineRecord* oldest = nullptr;
  for (const auto& [id, record] : parts_.machines.records()) {
    if (record.state != MachineState::Waiting) continue;
    ++waiting;
    if (source_in(record.enrolled_from) == source) ++from_source;
    const bool older = !oldest || record.enrolled_at < oldest->enrolled_at;
    if (older && !parts_.machines.connection(id)) oldest = &record;
  }
  if (from_source >= kWaitingPerAddress) return false;
  if (waiting < kWaitingMachines) return true;
  if (!oldest) return false;
  const std::string id = oldest->id;
  const auto row =
      trail_entry<TrailKind::MachineForgotten>({.actor = kTrailRelay, .machine = id}, oldest->name);
  parts_.database.post(
      [id, row](Store& store) {
        remove_machine(store.database(), id);
        append_trail(store.database(), std::array{row});
      },
      [this, id](const std::string& failure) {
        if (!failure.empty()) log_.write("", id, "the waiting machine is not removed: " + failure);
      });
  parts_.machines.remove(id);
  return true;
}

bool Admission::replaced(const AgentPeer& peer, const AgentPeer& older, Clock::time_point now) {
  thread_.check();
  if (!fights_.replaced(peer.id, now - older.logged_in, now)) return false;
  const MachineRecord* machine = parts_.machines.find(peer.id);
  if (!machine) return false;
  MachineRecord held = *machine;
  held.state = MachineState::UsedTwice;
  held.reason = older.address + ", " + peer.address;
  held.state_since = wall_seconds();
  held.state_by.clear();
  log_.write(peer.address, peer.id, "two computers use this identity; the other one is " + older.address);
  const auto row = trail_entry<TrailKind::MachineUsedTwice>(
      {.actor = kTrailRelay, .machine = peer.id, .address = peer.address}, held.name, older.address);
  parts_.database.post(
      [held, row](Store& store) {
        set_machine_state(store.database(), held);
        append_trail(store.database(), std::array{row});
      },
      [this, id = peer.id](const std::string& failure) {
        if (!failure.empty()) log_.write("", id, "the state \"used twice\" is not stored: " + failure);
      });
  parts_.machines.change(peer.id, [&](MachineRecord& record) { record = held; });
  return true;
}

void Admission::tick(std::int64_t now) {
  thread_.check();
  for (const EnrolmentWindow& window : windows_.take_closed(now)) {
    const char* reason = now >= window.until ? "time" : "machines";
    const auto row =
        trail_entry<TrailKind::EnrolmentClosed>({.actor = kTrailRelay}, group_name(window.group), reason);
    parts_.database.post(
        [id = window.id, row](Store& store) {
          remove_enrolment_window(store.database(), id);
          append_trail(store.database(), std::array{row});
        },
        [this](const std::string& failure) {
          if (!failure.empty()) log_.write("", "", "a closed enrolment window is not removed: " + failure);
        });
  }
}

}  // namespace vlk::relay
