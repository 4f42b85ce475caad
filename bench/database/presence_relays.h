// The database's side of many relays whose machines connect again now and then.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "relay/storage/cluster/relay_store.h"
#include "relay/storage/database.h"

namespace vantelink_bench {

using Clock = std::chrono::steady_clock;

// What all relays have in common. The constants are the defaults of the relay's program.
struct Traffic {
  static constexpr std::chrono::milliseconds kFlush{500};
  static constexpr std::chrono::milliseconds kBeat{3000};
  static constexpr std::chrono::milliseconds kLook{200};
  static constexpr std::chrono::seconds kSilence{12};

  std::string url;
  std::vector<std::string> machines;              // the ids of all machines
  std::atomic<double> seconds_connected{36'000};  // how long a machine stays connected on average
  std::atomic<bool> gathered{true};               // false: a transaction for each machine
  std::atomic<bool> stopping{false};
};

// What the relays did in one phase.
struct Counts {
  std::size_t stores = 0;          // transactions of store_presence()
  std::size_t beats = 0;           // transactions of note_life()
  std::size_t failures = 0;        // transactions that failed
  std::size_t removed = 0;         // relays that were taken for dead
  std::size_t rejoined = 0;        // times that a relay had been taken for dead itself
  std::size_t machines = 0;        // that came or went
  std::size_t reports = 0;         // that were taken from the other relays
  std::size_t bytes = 0;           // of those
  std::size_t changes = 0;         // looks after which a relay would read all machines and people again
  std::vector<double> store_ms{};  // each store's time, with its wait for the lock
  std::vector<double> delay_ms{};  // from a store's commit until another relay has taken its report
};

// One relay: a thread with one connection, which does what Cluster and DatabaseThread do with the database.
// Unlike there, nothing is kept of what is reported, and a report of a change lets it read nothing again.
class PresenceRelay {
 public:
  using Relays = std::vector<std::unique_ptr<PresenceRelay>>;

  // Connects; throws DatabaseError. `row` is the relay's row. `own` has numbers of the traffic's machines.
  PresenceRelay(Traffic& traffic, Relays& relays, vlk::relay::RelayRow row, std::vector<std::uint32_t> own);
  ~PresenceRelay();
  PresenceRelay(const PresenceRelay&) = delete;
  PresenceRelay& operator=(const PresenceRelay&) = delete;

  // Lets all of them begin. All must be connected, so that each hears all reports of the others.
  static void start(const Relays& relays);
  // Waits until they have noticed Traffic::stopping. They use each other, so none is destroyed before.
  static void wait(const Relays& relays);
  // Ends the relay like a crash. Its machines connect to the others at times that are spread over `within`.
  void die(std::chrono::milliseconds within);
  [[nodiscard]] bool dead() const { return dead_; }
  // Notes that the relay lives, while the thread does not run. Throws DatabaseError.
  void note_life_now();
  // Adds what the relay has done since the last call, without the delays.
  void take(Counts& counts);
  // Adds the delays of the reports that the relay has taken since the last call.
  void take_delays(Counts& counts);

 private:
  struct Arrival {
    std::uint32_t machine = 0;
    Clock::time_point due;
  };
  // A report that was taken, by the number of machines in all reports of its sender up to it.
  struct Heard {
    const PresenceRelay* sender = nullptr;
    std::size_t machines = 0;
    Clock::time_point at;
  };

  void serve();
  void move_machines(Clock::time_point now);
  void flush();
  void store(const std::vector<std::string>& came, const std::vector<std::string>& gone);
  void beat();
  void look();
  void expect(Arrival arrival);
  void note_arrivals(Clock::time_point now);
  // When the last of so many machines was stored; nothing if the sender's thread does not know that yet.
  [[nodiscard]] std::optional<Clock::time_point> stored_at(std::size_t machines) const;
  [[nodiscard]] PresenceRelay& another();

  Traffic& traffic_;
  Relays& relays_;
  vlk::relay::RelayRow row_;
  std::optional<vlk::relay::Database> database_;  // without a value after die()
  std::vector<std::uint32_t> own_;
  std::mt19937 random_;
  std::map<std::string, bool> news_;
  std::map<std::int64_t, std::pair<const PresenceRelay*, std::size_t>> heard_of_;  // by the sender's id
  Clock::time_point moved_;
  std::atomic<bool> dead_{false};

  mutable std::mutex lock_;  // for everything below
  std::vector<Arrival> arrivals_;
  Counts counts_;
  std::vector<Heard> heard_;
  std::vector<std::pair<std::size_t, Clock::time_point>> commits_;  // machines stored up to each of them
  std::thread thread_;
};

}  // namespace vantelink_bench
