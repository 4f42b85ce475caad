// The enrolled machines and their connections.
#include "relay/session/machines.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace vlk::relay {

Machines::Machines(Store& store, const Log& log) : store_(store), log_(log) {
  for (AgentRecord& record : store_.agents())
    records_[record.id] = std::move(record);
}

void Machines::add_connection(const std::shared_ptr<AgentPeer>& peer) {
  thread_.check();
  connections_.insert(peer);
}

std::shared_ptr<AgentPeer> Machines::log_in(const std::shared_ptr<AgentPeer>& peer,
                                            const AgentRecord& record) {
  thread_.check();
  peer->id = record.id;
  records_[record.id] = record;
  list_changed_ = true;
  log_.write(peer->address, peer->id, "online as \"" + record.name + "\"");
  auto older = std::exchange(online_[record.id], peer);
  if (older) log_.write(older->address, record.id, "replaced by a newer log-in from " + peer->address);
  return older;
}

void Machines::remove_connection(const std::shared_ptr<AgentPeer>& peer) {
  thread_.check();
  connections_.erase(peer);
  log_.write(peer->address, peer->id, "agent disconnected: " + peer->channel->end_reason());
  const auto found = online_.find(peer->id);
  if (found == online_.end() || found->second != peer) return;
  online_.erase(found);
  list_changed_ = true;
  AgentRecord& record = records_[peer->id];
  record.last_seen = wall_seconds();
  touch({peer->id}, record.last_seen, peer.get());
}

void Machines::cut_connections(const std::string& reason) {
  for (const auto& peer : connections_)
    peer->channel->cut(reason);
}

const AgentRecord* Machines::find(const std::string& id) const {
  const auto found = records_.find(id);
  return found == records_.end() ? nullptr : &found->second;
}

std::shared_ptr<AgentPeer> Machines::connection(const std::string& id) const {
  const auto found = online_.find(id);
  return found == online_.end() || found->second->channel->closing() ? nullptr : found->second;
}

void Machines::rename(const AgentPeer& peer, const std::string& name) {
  thread_.check();
  AgentRecord& record = records_[peer.id];
  try {
    store_.rename_agent(peer.id, name);
  } catch (const DatabaseError& failure) {
    return log_.write(peer.address, peer.id, failure.what());
  }
  if (record.name == name) return;
  record.name = name;
  list_changed_ = true;
  log_.write(peer.address, peer.id, "renamed to \"" + name + "\"");
}

bool Machines::heartbeat_echo(AgentPeer& peer, std::uint32_t number, Clock::time_point now) {
  thread_.check();
  if (!peer.heartbeat_open || number != peer.heartbeat_number) return false;
  peer.heartbeat_open = false;
  // The first measurement causes the list to be sent; later measurements are sent with its next change.
  if (!peer.round_trip_ms) list_changed_ = true;
  peer.round_trip_ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(now - peer.heartbeat_sent).count();
  return true;
}

void Machines::record_last_seen() {
  std::vector<std::string> ids;
  for (const auto& entry : online_)
    ids.push_back(entry.first);
  if (!ids.empty()) touch(ids, wall_seconds(), nullptr);
}

// If the database fails, the log names `peer`, or nobody if `peer` is null.
void Machines::touch(const std::vector<std::string>& ids, std::int64_t when, const AgentPeer* peer) {
  try {
    store_.touch_agents(ids, when);
  } catch (const DatabaseError& failure) {
    log_.write(peer ? peer->address : "", peer ? peer->id : "", failure.what());
  }
}

Machines::Forgotten Machines::forget(const std::string& id) {
  thread_.check();
  if (!records_.contains(id)) return Forgotten::Unknown;
  if (online_.contains(id)) return Forgotten::Connected;
  store_.remove_agent(id);
  records_.erase(id);
  list_changed_ = true;
  return Forgotten::Done;
}

nlohmann::json Machines::list(const std::map<std::string, std::string>& in_use) const {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& [id, record] : records_) {
    const auto peer = connection(id);
    const auto representative = in_use.find(id);
    const bool used = representative != in_use.end();
    nlohmann::json machine = {{"id", id},
                              {"name", record.name},
                              {"machine", record.machine},
                              {"os", record.os},
                              {"state", used ? "session" : (peer ? "online" : "offline")},
                              {"last_seen", peer ? wall_seconds() : record.last_seen},
                              {"round_trip_ms", nullptr},
                              {"representative", nullptr}};
    if (peer && peer->round_trip_ms) machine["round_trip_ms"] = *peer->round_trip_ms;
    if (used) machine["representative"] = representative->second;
    list.push_back(std::move(machine));
  }
  return list;
}

bool Machines::take_list_changed() {
  return std::exchange(list_changed_, false);
}

}  // namespace vlk::relay
