// The enrolled machines and their connections.
#include "relay/session/machines.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/storage/people/access_store.h"
#include "relay/storage/trail/chain.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

// What another process may change of a machine that browsers see.
auto listed(const MachineRecord& record) {
  return std::tie(record.machine, record.os, record.group, record.state, record.reason);
}

}  // namespace

void Machines::update(std::vector<MachineRecord> stored) {
  thread_.check();
  std::map<std::string, MachineRecord> before = std::exchange(records_, {});
  for (MachineRecord& record : stored) {
    const auto known = before.find(record.id);
    if (known == before.end() || listed(known->second) != listed(record)) mark_changed(record.id);
    if (known != before.end()) {
      // These are newer here than in the database, because nobody waits until they are stored; unless another
      // relay has the machine.
      const bool is_here = !presence_ || online_.contains(record.id);
      if (!is_here && record.name != known->second.name) mark_changed(record.id);
      if (is_here) record.name = known->second.name;
      record.last_seen = std::max(record.last_seen, known->second.last_seen);
      before.erase(known);
    }
    records_[record.id] = std::move(record);
  }
  for (const auto& removed : before) {
    mark_changed(removed.first);
    const auto peer = online_.find(removed.first);
    if (peer != online_.end()) peer->second->channel->cut("the machine was removed");
  }
}

void Machines::add_connection(const std::shared_ptr<AgentPeer>& peer) {
  thread_.check();
  connections_.insert(peer);
}

std::shared_ptr<AgentPeer> Machines::log_in(const std::shared_ptr<AgentPeer>& peer, const std::string& id) {
  thread_.check();
  peer->id = id;
  peer->logged_in = Clock::now();
  mark_changed(id);
  log_.write(peer->address, id, "online as \"" + records_[id].name + "\"");
  auto older = std::exchange(online_[id], peer);
  elsewhere_.erase(id);
  if (presence_) presence_(id, true);
  if (older) log_.write(older->address, id, "replaced by a newer log-in from " + peer->address);
  return older;
}

void Machines::remove_connection(const std::shared_ptr<AgentPeer>& peer) {
  thread_.check();
  connections_.erase(peer);
  log_.write(peer->address, peer->id, "agent disconnected: " + peer->channel->end_reason());
  const auto found = online_.find(peer->id);
  if (found == online_.end() || found->second != peer) return;
  online_.erase(found);
  mark_changed(peer->id);
  if (presence_) presence_(peer->id, false);
  const auto record = records_.find(peer->id);
  if (record == records_.end()) return;
  record->second.last_seen = wall_seconds();
  touch({peer->id}, record->second.last_seen);
}

void Machines::cut_connections(const std::string& reason) {
  for (const auto& peer : connections_)
    peer->channel->cut(reason);
}

const MachineRecord* Machines::find(const std::string& id) const {
  const auto found = records_.find(id);
  return found == records_.end() ? nullptr : &found->second;
}

std::shared_ptr<AgentPeer> Machines::connection(const std::string& id) const {
  const auto found = online_.find(id);
  return found == online_.end() || found->second->channel->closing() ? nullptr : found->second;
}

void Machines::add(const MachineRecord& record) {
  thread_.check();
  records_[record.id] = record;
  mark_changed(record.id);
}

void Machines::change(const std::string& id, const std::function<void(MachineRecord&)>& change) {
  thread_.check();
  const auto found = records_.find(id);
  if (found == records_.end()) return;
  change(found->second);
  mark_changed(id);
}

void Machines::remove(const std::string& id) {
  thread_.check();
  if (const auto peer = connection(id)) peer->channel->cut("the machine was removed");
  records_.erase(id);
  mark_changed(id);
}

void Machines::set_name(const std::string& id, const std::string& name) {
  thread_.check();
  const auto found = records_.find(id);
  if (found == records_.end()) return;
  found->second.name = name;
  mark_changed(id);
}

void Machines::rename(const AgentPeer& peer, const std::string& name) {
  thread_.check();
  const auto found = records_.find(peer.id);
  if (found == records_.end() || found->second.name == name) return;
  const std::string before = std::exchange(found->second.name, name);
  mark_changed(peer.id);
  log_.write(peer.address, peer.id, "renamed to \"" + name + "\"");
  const auto row =
      trail_entry<TrailKind::MachineRenamed>({.machine = peer.id, .address = peer.address}, name, before);
  const auto store_name = [id = peer.id, name, row](Store& store) {
    rename_machine(store.database(), id, name);
    append_trail(store.database(), std::span(&row, 1));
  };
  const auto restore = [this, id = peer.id, name, before](const std::string& failure) {
    if (failure.empty()) return;
    log_.write("", id, "the new name is not stored: " + failure);
    const auto record = records_.find(id);
    if (record == records_.end() || record->second.name != name) return;
    record->second.name = before;
    mark_changed(id);
  };
  database_.post(store_name, restore, name.size());
}

std::optional<Clock::time_point> Machines::heartbeat_echo(AgentPeer& peer, std::uint32_t number,
                                                          Clock::time_point now) {
  thread_.check();
  const bool is_first = !peer.heartbeats.round_trip();
  const auto echo = peer.heartbeats.returned(number, now);
  if (!echo) return std::nullopt;
  // The first measurement is sent to browsers at once; later ones are sent with the entry's next change.
  if (is_first) mark_changed(peer.id);
  entries_.erase(peer.id);
  return echo->follows;
}

void Machines::record_last_seen() {
  std::vector<std::string> ids;
  for (const auto& entry : online_)
    ids.push_back(entry.first);
  if (!ids.empty()) touch(std::move(ids), wall_seconds());
}

void Machines::touch(std::vector<std::string> ids, std::int64_t when) {
  const std::size_t bytes = ids.size() * sizeof(std::string);
  const auto store_time = [ids = std::move(ids), when](Store& store) {
    touch_machines(store.database(), ids, when);
  };
  database_.post(
      store_time,
      [this](const std::string& failure) {
        if (!failure.empty()) log_.write("", "", "the time \"last seen\" is not stored: " + failure);
      },
      bytes);
}

boost::asio::awaitable<Machines::Forgotten> Machines::forget(std::string id, TrailEntry row) {
  thread_.check();
  if (!records_.contains(id)) co_return Forgotten::Unknown;
  if (online_.contains(id) || elsewhere(id) != 0) co_return Forgotten::Connected;
  const auto work = [id, row](Store& store) {
    remove_machine(store.database(), id);
    append_trail(store.database(), std::span(&row, 1));
  };
  co_await database_.run(work);
  // The machine can have logged in while the change was stored.
  remove(id);
  co_return Forgotten::Done;
}

std::size_t Machines::count_in(std::int64_t group) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(records_, [&](const auto& entry) { return entry.second.group == group; }));
}

std::size_t Machines::count_waiting() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      records_, [](const auto& entry) { return entry.second.state == MachineState::Waiting; }));
}

void Machines::group_removed(std::int64_t group) {
  thread_.check();
  for (auto& entry : records_) {
    if (entry.second.group != group) continue;
    entry.second.group = kFirstGroup;
    mark_changed(entry.first);
  }
}

void Machines::set_representative(const std::string& id, const std::string& representative,
                                  std::size_t others) {
  thread_.check();
  Use use{representative, others};
  const auto known = in_use_.find(id);
  if (known == in_use_.end() ? representative.empty() : known->second == use) return;
  if (representative.empty()) {
    in_use_.erase(id);
  } else {
    in_use_[id] = std::move(use);
  }
  mark_changed(id);
}

void Machines::set_asked(const std::string& id, bool asked) {
  thread_.check();
  if (asked == asked_.contains(id)) return;
  if (asked) {
    asked_.insert(id);
  } else {
    asked_.erase(id);
  }
  mark_changed(id);
}

void Machines::mark_changed(const std::string& id) {
  entries_.erase(id);
  changed_.insert(id);
}

std::set<std::string> Machines::take_changed() {
  return std::exchange(changed_, {});
}

const std::string& Machines::entry(const std::string& id) const {
  std::string& entry = entries_[id];
  if (!entry.empty()) return entry;
  const MachineRecord& record = records_.at(id);
  const auto peer = connection(id);
  const auto use = in_use_.find(id);
  const bool used = use != in_use_.end();
  const bool connected = peer || elsewhere(id) != 0;
  nlohmann::json machine = {{"id", id},
                            {"name", record.name},
                            {"machine", record.machine},
                            {"os", record.os},
                            {"state", used ? "session" : (connected ? "online" : "offline")},
                            {"last_seen", connected ? wall_seconds() : record.last_seen},
                            {"round_trip_ms", nullptr},
                            {"representative", nullptr},
                            {"others", 0},
                            {"asked", asked_.contains(id)},
                            {"quarantine", nullptr}};
  if (record.state == MachineState::Quarantined) machine["quarantine"] = record.reason;
  if (const auto measured = peer ? peer->heartbeats.round_trip() : std::nullopt)
    machine["round_trip_ms"] = measured->count();
  if (used) {
    machine["representative"] = use->second.representative;
    machine["others"] = use->second.others;
  }
  return entry = dump(machine);
}

std::string Machines::list() const {
  std::string list;
  for (const auto& record : records_)
    list += (list.empty() ? '[' : ',') + entry(record.first);
  return list.empty() ? "[]" : list + ']';
}

}  // namespace vlk::relay
