// The machines: which machines have enrolled, which are connected, and the list that browsers show.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/log.h"
#include "relay/base/thread_checker.h"
#include "relay/session/peers.h"
#include "relay/storage/store.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Machines {
 public:
  // Reads the enrolled machines. `store` and `log` outlive this object. Throws DatabaseError.
  Machines(Store& store, const Log& log);

  // Every connection of an agent is in connections() from add_connection to remove_connection. log_in assigns
  // it to a machine.
  void add_connection(const std::shared_ptr<AgentPeer>& peer);
  // Makes `peer` the connection of the machine in `record`. Returns the older connection that it replaces, or
  // null. The newer connection is used, because the older one has most often failed without being closed.
  [[nodiscard]] std::shared_ptr<AgentPeer> log_in(const std::shared_ptr<AgentPeer>& peer,
                                                  const AgentRecord& record);
  void remove_connection(const std::shared_ptr<AgentPeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<AgentPeer>>& connections() const { return connections_; }
  void cut_connections(const std::string& reason);

  // The stored record of the machine with this id; null if the machine is unknown.
  [[nodiscard]] const AgentRecord* find(const std::string& id) const;
  // The connection of the machine with this id; null if the machine is not connected.
  [[nodiscard]] std::shared_ptr<AgentPeer> connection(const std::string& id) const;

  // Stores the new display name of a machine that is logged in.
  void rename(const AgentPeer& peer, const std::string& name);
  // Measures the round trip from an agent's echo of a heartbeat. Returns false, and measures nothing, unless
  // `number` is the number of the last heartbeat and this is its first echo.
  [[nodiscard]] bool heartbeat_echo(AgentPeer& peer, std::uint32_t number, Clock::time_point now);
  // Stores the present time as the "last seen" time of the connected machines.
  void record_last_seen();

  enum class Forgotten { Done, Unknown, Connected };
  // Removes the machine and its stored record, unless it is connected. Throws DatabaseError.
  [[nodiscard]] Forgotten forget(const std::string& id);

  // The list for browsers. `in_use` maps the id of each machine that is in a session to the representative.
  [[nodiscard]] nlohmann::json list(const std::map<std::string, std::string>& in_use) const;
  void mark_list_changed() { list_changed_ = true; }
  // True if the list has changed since the last call of this function.
  [[nodiscard]] bool take_list_changed();

 private:
  void touch(const std::vector<std::string>& ids, std::int64_t when, const AgentPeer* peer);

  const ThreadChecker thread_;
  Store& store_;
  const Log& log_;
  std::map<std::string, AgentRecord> records_;  // by machine id
  std::set<std::shared_ptr<AgentPeer>> connections_;
  std::map<std::string, std::shared_ptr<AgentPeer>> online_;  // by machine id
  bool list_changed_ = false;
};

}  // namespace vlk::relay
