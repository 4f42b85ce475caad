// What the tables of relays and presence cost when 100 relays with a million machines share a PostgreSQL
// server, which waits for the disk at each commit.
//
// --machines=N and --relays=N set the numbers, --seconds=N the time of each measurement.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "database_server.h"
#include "million_rows.h"
#include "options.h"
#include "presence_relays.h"
#include "relay/base/secrets.h"
#include "relay/storage/store.h"
#include "support/temp_folder.h"

namespace {

using namespace vantelink_bench;
using vlk::relay::Database;
using vlk::relay::RelayRow;

constexpr double kSteady = 36'000;                  // seconds from one connection of a machine to its next
constexpr double kChurn = 600;                      // the same while the machines come and go all the time
constexpr std::chrono::milliseconds kStorm{15000};  // within which the machines of a dead relay are back
constexpr std::chrono::seconds kSettle{4};          // before each measurement; all relays have begun by then

struct Options {
  std::size_t machines = 1'000'000;
  std::size_t relays = 100;
  std::chrono::seconds time{30};
};

Options parsed(int argc, char** argv) {
  Options options;
  read_options(
      argc, argv,
      {{"machines", [&](const auto& value) { options.machines = std::stoul(value); }},
       {"relays", [&](const auto& value) { options.relays = std::stoul(value); }},
       {"seconds", [&](const auto& value) { options.time = std::chrono::seconds(std::stol(value)); }}});
  return options;
}

// The time that this process has used its processors, in seconds.
double own_processor() {
  rusage use{};
  ::getrusage(RUSAGE_SELF, &use);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(use.ru_utime) + seconds(use.ru_stime);
}

// The value below which the share `part` of all values is.
double percentile(std::vector<double>& values, double part) {
  if (values.empty()) return 0;
  const auto at = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

struct Figures {
  double stores = 0;  // for each machine that came or went
  double server = 0;  // % of a processor
  double p99 = 0;     // of a store, in ms
};

// The machines and relays of one run.
class Installation {
 public:
  // `database` has the machines, connected to the relays `rows`.
  Installation(const DatabaseServer& server, Database& database, const std::vector<RelayRow>& rows,
               std::chrono::seconds time)
      : server_(server), time_(time) {
    traffic_.url = server.url();
    std::map<std::int64_t, std::vector<std::uint32_t>> own;
    for (auto& row : load_presence(database)) {
      own[row.relay].push_back(static_cast<std::uint32_t>(traffic_.machines.size()));
      traffic_.machines.push_back(std::move(row.machine));
    }
    for (const auto& row : rows)
      relays_.push_back(std::make_unique<PresenceRelay>(traffic_, relays_, row, std::move(own[row.id])));
    control_.emplace(server.url());
  }
  ~Installation() { stop(); }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  void start() {
    for (const auto& relay : relays_)
      relay->note_life_now();
    PresenceRelay::start(relays_);
  }
  void set_traffic(double seconds_connected, bool gathered) {
    traffic_.seconds_connected = seconds_connected;
    traffic_.gathered = gathered;
  }
  // Prints what the relays do while `event` happens at the beginning.
  Figures measure(const char* title, const std::function<void()>& event = {});
  void kill_one() { relays_.front()->die(kStorm); }
  void read_again() {
    std::printf("one relay reads everything again   %8.2f s\n", vantelink_bench::read_again(*control_));
  }
  void stop() {
    traffic_.stopping = true;
    PresenceRelay::wait(relays_);
    relays_.clear();
  }
  [[nodiscard]] const std::vector<std::string>& machines() const { return traffic_.machines; }

 private:
  [[nodiscard]] Counts take() {
    Counts counts;
    for (const auto& relay : relays_)
      relay->take(counts);
    for (const auto& relay : relays_)
      relay->take_delays(counts);
    return counts;
  }
  void print(Counts& counts, double seconds) const;

  const DatabaseServer& server_;
  const std::chrono::seconds time_;
  Traffic traffic_;
  PresenceRelay::Relays relays_;
  std::optional<Database> control_;
};

Figures Installation::measure(const char* title, const std::function<void()>& event) {
  std::printf("\n%s\n", title);
  std::fflush(stdout);
  std::this_thread::sleep_for(kSettle);
  (void)take();
  const WrittenLog log = written_log(*control_);
  const double server = server_.processor();
  const double own = own_processor();
  const auto begin = Clock::now();
  if (event) event();
  std::this_thread::sleep_until(begin + time_);
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  const double server_used = 100 * (server_.processor() - server) / seconds;
  const double own_used = 100 * (own_processor() - own) / seconds;
  const WrittenLog after = written_log(*control_);
  Counts counts = take();
  print(counts, seconds);
  std::printf("processor of the server            %8.1f %% of one\n", server_used);
  std::printf("processor of all relays            %8.1f %% of one\n", own_used);
  std::printf("write-ahead log                    %8.1f KiB a second, %.1f waits for the disk a second\n",
              static_cast<double>(after.bytes - log.bytes) / 1024 / seconds,
              static_cast<double>(after.syncs - log.syncs) / seconds);
  const auto machines = static_cast<double>(std::max<std::size_t>(counts.machines, 1));
  return {static_cast<double>(counts.stores) / machines, server_used, percentile(counts.store_ms, 0.99)};
}

void Installation::print(Counts& counts, double seconds) const {
  const auto living =
      std::count_if(relays_.begin(), relays_.end(), [](const auto& relay) { return !relay->dead(); });
  const auto a_second = [seconds](std::size_t count) { return static_cast<double>(count) / seconds; };
  std::printf("machines that came or went         %8.1f a second\n", a_second(counts.machines));
  std::printf("transactions                       %8.1f a second, %.1f of them store_presence()\n",
              a_second(counts.stores + counts.beats), a_second(counts.stores));
  std::printf("store_presence() with its wait     %8.1f ms p50, %.1f ms p99, %.1f ms at most\n",
              percentile(counts.store_ms, 0.5), percentile(counts.store_ms, 0.99),
              percentile(counts.store_ms, 1));
  std::printf("from the commit to another relay   %8.1f ms p50, %.1f ms p99\n",
              percentile(counts.delay_ms, 0.5), percentile(counts.delay_ms, 0.99));
  std::printf("reports to each relay              %8.1f a second, %.2f KiB a second\n",
              a_second(counts.reports) / static_cast<double>(living),
              a_second(counts.bytes) / 1024 / static_cast<double>(living));
  std::printf("full reads that reports ask for    %8.2f a second of each relay\n",
              a_second(counts.changes) / static_cast<double>(living));
  std::printf("failed transactions                %8zu; removed relays %zu, entered again %zu\n",
              counts.failures, counts.removed, counts.rejoined);
}

void print_ratio(const char* title, const Figures& single, const Figures& gathered) {
  std::printf("%s: one by one / gathered: transactions %.2f, processor of the server %.2f, p99 %.2f\n", title,
              single.stores / gathered.stores, single.server / gathered.server, single.p99 / gathered.p99);
}

struct Both {
  Figures gathered;
  Figures single;
};

// Returns the figures of the steady traffic, and those of churn without the second ones.
std::pair<Both, Both> run_phases(Installation& all) {
  Both steady, churn;
  steady.gathered = all.measure("steady: each machine connects again once in 10 hours");
  all.set_traffic(kSteady, false);
  steady.single = all.measure("the same with a transaction for each machine");
  all.set_traffic(kSteady, true);
  (void)all.measure("storm: a relay dies, its machines are at the others within 15 s",
                    [&] { all.kill_one(); });
  all.set_traffic(kChurn, true);
  churn.gathered = all.measure("churn: each machine connects again once in 10 minutes");
  all.set_traffic(kSteady, true);
  // The last one, because a relay whose wait for the lock took too long does not store anything afterwards.
  (void)all.measure("steady, while one relay reads everything again", [&] { all.read_again(); });
  return {steady, churn};
}

void run(const Options& options) {
  vlk::relay::start_sodium();
  const vantelink_test::TempFolder folder;
  const DatabaseServer server(folder.path());
  std::printf("%zu relays, %zu machines\n", options.relays, options.machines);
  vlk::relay::Store store(server.url());
  fill_machines(store.database(), options.machines);
  auto rows = fill_presence(store.database(), options.relays);
  print_sizes(store.database(), options.machines);
  print_loads(server.url());
  auto all = std::make_unique<Installation>(server, store.database(), rows, options.time);
  all->start();
  auto [steady, churn] = run_phases(*all);
  all = nullptr;
  // Relays that fall behind take each other for dead, so no other measurement follows in this installation.
  rows = fill_presence(store.database(), options.relays);
  all = std::make_unique<Installation>(server, store.database(), rows, options.time);
  all->start();
  all->set_traffic(kChurn, false);
  churn.single = all->measure("churn with a transaction for each machine");
  all->stop();
  std::printf("\n");
  print_ratio("steady", steady.single, steady.gathered);
  print_ratio("churn", churn.single, churn.gathered);
  print_other_writes(store.database(), all->machines(), options.machines / options.relays);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(parsed(argc, argv));
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
