// The relays that share a PostgreSQL database: which of them has which machine, and which of them live.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "relay/base/clock.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/machines.h"
#include "relay/storage/cluster/relay_store.h"
#include "relay/storage/thread/database_thread.h"

namespace vlk::relay {

// Writes which machines are connected here, and reads which are connected to other relays. Until join() it
// does nothing, so a single relay needs none of it. Used on the relay's one thread.
class Cluster {
 public:
  struct Settings {
    std::string name{};     // of this relay, different from those of the others; empty for a single relay
    std::string address{};  // where browsers reach this relay: https://HOST:PORT
    std::chrono::milliseconds flush{500};  // how long news of machines are gathered
    std::chrono::milliseconds beat{3000};  // interval of the notes that this relay lives
    std::chrono::seconds silence{12};      // after which a relay counts as dead
    std::size_t moved_at_once = 100;       // machines that a draining relay sends away each second
  };

  // `database`, `machines` and `log` outlive this object.
  Cluster(DatabaseThread& database, Machines& machines, const Log& log)
      : database_(database), machines_(machines), log_(log) {}

  // Enters this relay among the others; blocks for the database. `trail_key` is the fingerprint of the key
  // that signs the audit trail. Throws std::runtime_error with a sentence if the others sign with another
  // key, or DatabaseError.
  void join(const Settings& settings, const std::string& trail_key);
  [[nodiscard]] bool joined() const { return own_.id != 0; }
  // Takes this relay off the list; blocks for the database. The last call.
  void leave();

  void tick(Clock::time_point now);
  // Reads everything again, because relays have come or gone, or because reports may have been missed.
  void reload();
  // Sets a function that is called for each machine that another relay's administrator disconnects.
  void on_disconnection(std::function<void(const std::string& machine)> act) { disconnect_ = std::move(act); }
  // What other relays have reported of their machines.
  void hear(const std::vector<std::string>& reports);

  // This relay's row.
  [[nodiscard]] const RelayRow& own() const { return own_; }
  // The other relay to which the machine is connected; null if there is none.
  [[nodiscard]] const RelayRow* relay_of(const std::string& machine) const;
  [[nodiscard]] std::size_t others() const { return others_.size(); }

  // Moves the machines away: the agents connect again, and a load balancer that asks /readyz leads them to
  // another relay. Machines in a session are moved last.
  void drain();
  [[nodiscard]] bool draining() const { return own_.draining; }

 private:
  void note(const std::string& machine, bool online);
  void flush();
  void beat();
  void move_machines();
  void apply(std::vector<RelayRow> relays, const std::vector<PresenceRow>& presence);

  const ThreadChecker thread_;
  DatabaseThread& database_;
  Machines& machines_;
  const Log& log_;
  Settings settings_;
  RelayRow own_;
  std::function<void(const std::string&)> disconnect_;
  std::map<std::int64_t, RelayRow> others_;  // by id
  std::map<std::string, bool> news_;         // machines that came or went since the last flush
  Clock::time_point next_flush_{};
  Clock::time_point next_beat_{};
  Clock::time_point next_move_{};
  bool beating_ = false;  // a note of life is under way
};

}  // namespace vlk::relay
