// Makes rows by SQL, and measures the relay's own functions on them.
#include "million_rows.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>
#include <utility>

#include "database_server.h"
#include "process.h"
#include "relay/base/clock.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/trail/chain.h"

namespace vantelink_bench {
namespace {

using namespace vlk::relay;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLogIns{5};  // how long log-ins are written

double seconds_since(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// 16 bytes as base64url make an id of 22 characters, like those that a relay makes.
std::string machine_rows(std::size_t machines) {
  return "INSERT INTO machines(id, secret_hash, name, machine, os, hw_id, enrolled_at, enrolled_from, "
         "last_seen, state, state_since) "
         "SELECT translate(substr(encode(decode(md5(n::text), 'hex'), 'base64'), 1, 22), '+/', '-_'), "
         "sha256(n::text::bytea), 'DESKTOP-' || lpad(n::text, 7, '0'), 'DESKTOP-' || lpad(n::text, 7, '0'), "
         "'Windows 11 Pro 10.0.22631', md5('hw' || n)::uuid::text, 1790000000, "
         "'203.0.113.7:' || (10000 + n % 50000), 1790000000, 'approved', 1790000000 FROM "
         "generate_series(1, " +
         std::to_string(machines) + ") AS n";
}

std::int64_t number_of(Database& database, const std::string& sql) {
  Statement query(database, sql.c_str());
  if (!query.step()) throw std::runtime_error("no row for " + sql);
  return query.number(0);
}

// The most memory that this process has had in use since the last call, in KiB.
double take_peak() {
  std::ifstream status("/proc/self/status");
  double kib = 0;
  for (std::string word; status >> word && word != "VmHWM:";) {
  }
  status >> kib;
  std::ofstream("/proc/self/clear_refs") << "5";
  return kib;
}

// `read` returns what is to be kept in memory.
template <class Read>
void print_load(const char* title, const Read& read) {
  (void)take_peak();
  const double before = memory(::getpid());
  const auto begin = Clock::now();
  const auto kept = read();
  const double time = seconds_since(begin);
  const auto count = static_cast<double>(kept.size());
  const double used = memory(::getpid()) - before;
  std::printf("%-34s %8.2f s, %.0f MiB afterwards (%.0f bytes each), at most %.0f MiB\n", title, time,
              used / 1024, used * 1024 / count, (take_peak() - before) / 1024);
}

// The containers are those of Machines and Cluster.
void print_machines_load(const std::string& url) {
  Database database(url);
  print_load("load_machines()", [&] {
    std::map<std::string, MachineRecord> records;
    for (MachineRecord& record : load_machines(database)) {
      std::string id = record.id;
      records[std::move(id)] = std::move(record);
    }
    return records;
  });
}

void print_presence_load(const std::string& url) {
  Database database(url);
  print_load("load_presence()", [&] {
    std::map<std::string, std::int64_t> elsewhere;
    for (const PresenceRow& row : load_presence(database))
      elsewhere[row.machine] = row.relay;
    return elsewhere;
  });
}

// A process of its own has no memory left over from another measurement.
void run_apart(void (*print)(const std::string&), const std::string& url) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("no process can be made");
  if (child == 0) {
    try {
      print(url);
      std::fflush(stdout);
      ::_exit(0);
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "%s\n", failure.what());
      ::_exit(1);
    }
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child || status != 0)
    throw std::runtime_error("the rows cannot be read");
}

}  // namespace

void fill_machines(Database& database, std::size_t machines) {
  database.execute(machine_rows(machines).c_str());
  database.execute("VACUUM ANALYZE machines");
}

std::vector<RelayRow> fill_presence(Database& database, std::size_t relays) {
  std::vector<RelayRow> rows;
  Transaction transaction(database);
  database.execute("TRUNCATE relays CASCADE");
  for (std::size_t i = 0; i < relays; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    const std::string address = "https://" + name + ".example.org";
    rows.push_back({join_relays(database, name, address), name, address});
  }
  const std::string number = "row_number() OVER ()::bigint % " + std::to_string(relays);
  database.execute(("INSERT INTO presence(machine, relay) SELECT id, " + std::to_string(rows.front().id) +
                    " + " + number + " FROM machines")
                       .c_str());
  transaction.commit();
  database.execute("VACUUM ANALYZE presence");
  database.execute("CHECKPOINT");
  return rows;
}

void print_sizes(Database& database, std::size_t machines) {
  for (const char* table : {"machines", "presence"}) {
    const auto bytes = static_cast<double>(
        number_of(database, "SELECT pg_total_relation_size('" + std::string(table) + "')"));
    std::printf("%-34s %8.1f MiB, %.0f bytes a machine\n", (std::string(table) + " with its indexes").c_str(),
                bytes / (1 << 20), bytes / static_cast<double>(machines));
  }
}

void print_loads(const std::string& url) {
  run_apart(print_machines_load, url);
  run_apart(print_presence_load, url);
}

double read_again(Database& database) {
  const auto begin = Clock::now();
  Transaction transaction(database);
  const auto relays = load_relays(database);
  const auto presence = load_presence(database);
  const auto machines = load_machines(database);
  transaction.commit();
  return seconds_since(begin);
}

void print_other_writes(Database& database, const std::vector<std::string>& machines,
                        std::size_t of_one_relay) {
  const std::size_t count = std::min(of_one_relay, machines.size());
  WrittenLog before = written_log(database);
  auto begin = Clock::now();
  {
    Transaction transaction(database);
    touch_machines(database, {machines.begin(), machines.begin() + static_cast<std::ptrdiff_t>(count)},
                   wall_seconds());
    transaction.commit();
  }
  const double touched = seconds_since(begin);
  std::printf("last seen, %zu machines in one go  %6.2f s, %.1f MiB of write-ahead log\n", count, touched,
              static_cast<double>(written_log(database).bytes - before.bytes) / (1 << 20));
  before = written_log(database);
  std::size_t done = 0;
  for (begin = Clock::now(); Clock::now() - begin < kLogIns; ++done) {
    const TrailSubject subject{.machine = machines[done % machines.size()], .address = "203.0.113.7:50000"};
    const std::array rows{trail_entry<TrailKind::MachineConnected>(subject, "DESKTOP-0000001")};
    Transaction transaction(database);
    append_trail(database, rows);
    transaction.commit();
  }
  std::printf(
      "log-ins, one row of the trail each %6.0f a second, %.1f KiB of write-ahead log each\n",
      static_cast<double>(done) / seconds_since(begin),
      static_cast<double>(written_log(database).bytes - before.bytes) / 1024 / static_cast<double>(done));
}

}  // namespace vantelink_bench
