// The machines: which machines have enrolled, which are connected, and the list that browsers show.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/awaitable.hpp>

#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/peers.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/thread/database_thread.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Machines {
 public:
  // `database` and `log` outlive this object.
  Machines(DatabaseThread& database, const Log& log) : database_(database), log_(log) {}

  // Every connection of an agent is in connections() from add_connection to remove_connection. log_in assigns
  // it to a machine.
  void add_connection(const std::shared_ptr<AgentPeer>& peer);
  // Makes `peer` the connection of the known machine with this id. Returns the older connection that it
  // replaces, or null. The newer connection is used, because the older one has most often failed without
  // being closed.
  [[nodiscard]] std::shared_ptr<AgentPeer> log_in(const std::shared_ptr<AgentPeer>& peer,
                                                  const std::string& id);
  void remove_connection(const std::shared_ptr<AgentPeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<AgentPeer>>& connections() const { return connections_; }
  void cut_connections(const std::string& reason);

  // The stored record of the machine with this id; null if the machine is unknown.
  [[nodiscard]] const MachineRecord* find(const std::string& id) const;
  // The connection of the machine with this id; null if the machine is not connected.
  [[nodiscard]] std::shared_ptr<AgentPeer> connection(const std::string& id) const;

  // Takes over the stored machines, at the start and after another process has changed them. The connection
  // of a machine that was removed is cut.
  void update(std::vector<MachineRecord> stored);

  // Adds a machine that has just been stored, or changes the name of a machine after it was stored.
  void add(const MachineRecord& record);
  void set_name(const std::string& id, const std::string& name);
  // Changes the record of a machine, after the change was stored.
  void change(const std::string& id, const std::function<void(MachineRecord&)>& change);
  // Removes a machine, after its stored record was removed, and cuts its connection.
  void remove(const std::string& id);
  // Changes the display name of a machine that is logged in, and stores it. The old name comes back if the
  // new one cannot be stored.
  void rename(const AgentPeer& peer, const std::string& name);
  // Measures the round trip from an agent's echo of a heartbeat. Returns the time before which all
  // messages were sent that the agent has read, or nothing if no heartbeat with this number waits for its
  // echo.
  [[nodiscard]] std::optional<Clock::time_point> heartbeat_echo(AgentPeer& peer, std::uint32_t number,
                                                                Clock::time_point now);
  // Stores the present time as the "last seen" time of the connected machines.
  void record_last_seen();

  // How many machines are connected and logged in.
  [[nodiscard]] std::size_t count_online() const { return online_.size(); }
  [[nodiscard]] std::size_t count_in(std::int64_t group) const;
  // How many machines wait for approval.
  [[nodiscard]] std::size_t count_waiting() const;
  // The group was removed: its machines belong to the first group now, as in the database.
  void group_removed(std::int64_t group);

  enum class Forgotten { Done, Unknown, Connected };
  // Removes the machine and its stored record, unless it is connected, and writes the row. Throws
  // DatabaseError.
  [[nodiscard]] boost::asio::awaitable<Forgotten> forget(std::string id, TrailEntry row);

  // Sets which representative is in a session with the machine, and how many others are; empty for nobody.
  void set_representative(const std::string& id, const std::string& representative, std::size_t others = 0);
  // The other relay to which a machine is connected, by the relay's id; 0 for none.
  void set_elsewhere(const std::string& id, std::int64_t relay);
  // The machine is not connected to that relay any more.
  void left_relay(const std::string& id, std::int64_t relay);
  void replace_elsewhere(std::map<std::string, std::int64_t> elsewhere);
  [[nodiscard]] std::int64_t elsewhere(const std::string& id) const;
  [[nodiscard]] std::size_t count_elsewhere() const { return elsewhere_.size(); }
  // Sets a function that is called when a machine has connected to this relay or has left it.
  void on_presence(std::function<void(const std::string& id, bool online)> changed) {
    presence_ = std::move(changed);
  }
  // The ids of the machines that are connected to this relay.
  [[nodiscard]] std::vector<std::string> online() const;
  // Cuts the connections of at most so many machines, those in a session last. Returns how many.
  std::size_t cut_some(std::size_t count, const std::string& reason);

  // Sets whether a box of an earlier request for a session may stand on the machine's screen.
  void set_asked(const std::string& id, bool asked);

  // The stored records by machine id.
  [[nodiscard]] const std::map<std::string, MachineRecord>& records() const { return records_; }
  // The machine's entry in the list for browsers, a JSON object. It is built once for each change.
  [[nodiscard]] const std::string& entry(const std::string& id) const;
  // All entries, as a JSON array.
  [[nodiscard]] std::string list() const;
  // The ids of the machines whose entries have changed since the last call of this function, the forgotten
  // ones included.
  [[nodiscard]] std::set<std::string> take_changed();

 private:
  void mark_changed(const std::string& id);
  void touch(std::vector<std::string> ids, std::int64_t when);

  const ThreadChecker thread_;
  DatabaseThread& database_;
  const Log& log_;
  std::map<std::string, MachineRecord> records_;  // by machine id
  std::set<std::shared_ptr<AgentPeer>> connections_;
  std::map<std::string, std::shared_ptr<AgentPeer>> online_;  // by machine id
  std::map<std::string, std::int64_t> elsewhere_;             // ids of relays, by machine id
  std::function<void(const std::string&, bool)> presence_;
  struct Use {
    std::string representative;
    std::size_t others = 0;

    bool operator==(const Use&) const = default;
  };
  std::map<std::string, Use> in_use_;  // by machine id
  std::set<std::string> asked_;        // ids
  std::set<std::string> changed_;
  mutable std::map<std::string, std::string> entries_;  // those that entry() has built
};

}  // namespace vlk::relay
