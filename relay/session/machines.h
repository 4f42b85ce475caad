// The machines: which have enrolled, which are connected, and the list of them that browsers show.
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
  // Reads the enrolled machines. `store` and `log` outlive this. Throws DatabaseError.
  Machines(Store& store, const Log& log);

  // A connection is known from add_connection to remove_connection, and is a machine's from its log-in on.
  void add_connection(const std::shared_ptr<AgentPeer>& peer);
  // Makes `peer` the connection of the machine in `record`. Returns the older connection that it replaces, or
  // null. The newest wins because an older one is most often dead without having been closed.
  [[nodiscard]] std::shared_ptr<AgentPeer> log_in(const std::shared_ptr<AgentPeer>& peer,
                                                  const AgentRecord& record);
  void remove_connection(const std::shared_ptr<AgentPeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<AgentPeer>>& connections() const { return connections_; }
  void cut_connections(const std::string& reason);

  // The machine with this id as stored, or null; and its connection, or null.
  [[nodiscard]] const AgentRecord* find(const std::string& id) const;
  [[nodiscard]] std::shared_ptr<AgentPeer> connection(const std::string& id) const;

  // Stores the new display name of a machine that is logged in.
  void rename(const AgentPeer& peer, const std::string& name);
  // Measures the round trip if `number` is that of the heartbeat sent last; false for any other number.
  [[nodiscard]] bool heartbeat_echo(AgentPeer& peer, std::uint32_t number, Clock::time_point now);
  // Stores that the connected machines were seen now.
  void record_last_seen();

  enum class Forgotten { Done, Unknown, Connected };
  // Removes the machine for good, unless it is connected. Throws DatabaseError.
  [[nodiscard]] Forgotten forget(const std::string& id);

  // The list for browsers. `in_use` has the representative of each machine that is in a session, by its id.
  [[nodiscard]] nlohmann::json list(const std::map<std::string, std::string>& in_use) const;
  void mark_list_changed() { list_changed_ = true; }
  // Whether the list changed since the last call.
  [[nodiscard]] bool take_list_changed();

 private:
  void touch(const std::vector<std::string>& ids, std::int64_t when, const AgentPeer* peer);

  const ThreadChecker thread_;
  Store& store_;
  const Log& log_;
  std::map<std::string, AgentRecord> records_;  // by id
  std::set<std::shared_ptr<AgentPeer>> connections_;
  std::map<std::string, std::shared_ptr<AgentPeer>> online_;  // by id
  bool list_changed_ = false;
};

}  // namespace vlk::relay
