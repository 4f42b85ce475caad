// What the ends of 100 sessions see while two relays and their PostgreSQL server have faults: a relay is
// killed, the server is restarted, and nothing passes between the relays and the server for a while.
//
// --sessions=N sets the number of sessions. The last fault needs the right to change the rules of iptables
// for the loopback interface.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "cluster_ends.h"
#include "database_server.h"
#include "faults.h"
#include "options.h"
#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/storage/store.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace {

using namespace vantelink_bench;
using vantelink_test::RelayProcess;
using vlk::relay::Browser;
using vlk::relay::Json;

constexpr char kPassword[] = "correct horse battery";
constexpr char kPerson[] = "admin";
constexpr std::size_t kSessionsOfALogin = 8;
constexpr std::size_t kPeersOfAnAddress = 50;
constexpr std::chrono::seconds kPatience{120};
constexpr std::chrono::seconds kCutOff{20};
constexpr std::chrono::seconds kCalm{3};  // before and after each fault
constexpr std::chrono::milliseconds kLate{1000};

double seconds(Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

void wait_until(const char* what, const std::function<bool()>& condition) {
  const auto end = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > end) throw std::runtime_error(std::string("in vain waited until ") + what);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::string credentials() {
  return Json{{"name", kPerson}, {"password", kPassword}}.dump();
}

// A relay of the database, with a data folder of its own.
std::unique_ptr<RelayProcess> start_relay(const std::filesystem::path& folder, const std::string& name,
                                          const std::string& database) {
  return std::make_unique<RelayProcess>(
      (folder / name).string(),
      std::vector<std::string>{"--database", database, "--relay-name", name, "--relay-address",
                               "https://" + name + ".example", "--enrolments", "1000000"});
}

class Scene {
 public:
  Scene(std::size_t sessions, const std::string& database) : sessions_(sessions), database_(database) {
    vlk::relay::start_sodium();
    vlk::relay::Store store(database);
    store.add_user(kPerson, vlk::relay::hash_password(kPassword));
    store.open_enrolment(600, std::nullopt);
    start("north");
    std::filesystem::create_directories(folder_.path() / "south");
    for (const char* key : {"trail-key.pem", "trail-key.pub"})
      std::filesystem::copy_file(folder_.path() / "north" / key, folder_.path() / "south" / key);
    start("south");
    begin_sessions();
  }
  ~Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  void kill_a_relay();
  // The second relay serves again; sessions stay where they are.
  void start_it_again();
  void restart_the_server(DatabaseServer& server);
  void cut_off_the_server(const DatabaseServer& server);

 private:
  void start(const std::string& name) {
    std::filesystem::create_directories(folder_.path() / name);
    running_[name] = start_relay(folder_.path(), name, database_);
    relays_.add("https://" + name + ".example", static_cast<unsigned short>(running_[name]->port()));
  }
  void begin_sessions();
  [[nodiscard]] bool all_watch() const;
  void forget() {
    for (auto& viewer : viewers_)
      viewer->forget();
  }
  void print(const char* who, std::vector<double> longest) const;
  [[nodiscard]] std::size_t accepted() const;
  void report(const LogIns& log_ins, std::size_t accepted_before);

  const std::size_t sessions_;
  const std::string database_;
  const vantelink_test::TempFolder folder_;
  std::map<std::string, std::unique_ptr<RelayProcess>> running_;
  Relays relays_;
  std::vector<std::unique_ptr<RelayedMachine>> machines_;
  std::vector<std::unique_ptr<RelayedViewer>> viewers_;
};

void Scene::begin_sessions() {
  const auto port = static_cast<unsigned short>(running_["north"]->port());
  std::string cookie;
  for (std::size_t number = 0; number < sessions_; ++number) {
    const std::string from = "127.0.1." + std::to_string(1 + number / kPeersOfAnAddress);
    machines_.push_back(std::make_unique<RelayedMachine>(relays_, from));
    machines_.back()->start();
  }
  for (std::size_t number = 0; number < sessions_; ++number) {
    const RelayedMachine& machine = *machines_[number];
    wait_until("a machine has enrolled", [&] { return !machine.id().empty(); });
    if (number % kSessionsOfALogin == 0)
      cookie = Browser(port).request("POST", "/api/login", credentials()).cookie;
    const std::string from = "127.0.2." + std::to_string(1 + number / kPeersOfAnAddress);
    viewers_.push_back(std::make_unique<RelayedViewer>(relays_, from, cookie, machine.id()));
    viewers_.back()->start();
  }
  wait_until("all viewers have pictures", [&] { return all_watch(); });
}

bool Scene::all_watch() const {
  return std::ranges::all_of(viewers_, [](const auto& viewer) {
    const auto seen = viewer->seen();
    return seen.pictures > 0 && Clock::now() - seen.last_picture < kLate;
  });
}

std::size_t Scene::accepted() const {
  std::size_t count = 0;
  for (const auto& viewer : viewers_)
    count += viewer->seen().sessions;
  return count;
}

void Scene::print(const char* who, std::vector<double> longest) const {
  if (longest.empty()) return;
  std::ranges::sort(longest);
  const auto at = [&](double share) {
    return longest[static_cast<std::size_t>(share * static_cast<double>(longest.size() - 1))];
  };
  std::printf("  %-34s %4zu sessions, longest time without a picture p50 %.2f, p99 %.2f, most %.2f s\n", who,
              longest.size(), at(0.5), at(0.99), at(1));
  std::fflush(stdout);
}

void Scene::kill_a_relay() {
  std::printf("a relay is killed (kill -9)\n");
  std::this_thread::sleep_for(kCalm);
  const auto dead = static_cast<unsigned short>(running_["south"]->port());
  std::vector<bool> hit;
  for (const auto& machine : machines_)
    hit.push_back(machine->port() == dead);
  const std::size_t before = accepted();
  forget();
  const auto begin = Clock::now();
  running_["south"]->kill();
  const auto machines_back = [&] {
    return std::ranges::all_of(
        machines_, [&](const auto& machine) { return machine->port() != 0 && machine->port() != dead; });
  };
  wait_until("the machines are back", machines_back);
  std::printf("  the machines were connected to the other relay after %.2f s\n",
              seconds(Clock::now() - begin));
  const auto hit_count = static_cast<std::size_t>(std::ranges::count(hit, true));
  wait_until("the sessions are back", [&] { return accepted() >= before + hit_count && all_watch(); });
  std::this_thread::sleep_for(kCalm);
  std::vector<double> its, others;
  for (std::size_t i = 0; i < viewers_.size(); ++i)
    (hit[i] ? its : others).push_back(seconds(viewers_[i]->seen().longest));
  print("machines at the killed relay:", its);
  print("machines at the other one:", others);
  wait_until("the silent relay is removed", [&] { return running_["north"]->logged("is silent") > 0; });
  std::printf("  it was removed %.1f s after its end; sessions that were accepted again: %zu of %zu\n",
              seconds(Clock::now() - begin), accepted() - before, hit_count);
}

void Scene::start_it_again() {
  running_.erase("south");
  start("south");
}

void Scene::report(const LogIns& log_ins, std::size_t accepted_before) {
  wait_until("all viewers have pictures", [&] { return all_watch(); });
  std::vector<double> all;
  for (const auto& viewer : viewers_)
    all.push_back(seconds(viewer->seen().longest));
  print("all:", all);
  std::printf("  sessions that were accepted again: %zu\n", accepted() - accepted_before);
  std::printf("  log-ins meanwhile: %zu, refused: %zu, longest wait for an answer: %.1f s\n",
              log_ins.good.load(), log_ins.refused.load(), log_ins.longest.load());
  if (log_ins.refused > 0) std::printf("  refused with: %s\n", log_ins.sentence().c_str());
  std::printf("  in the relay's log so far: database lost %d times, back %d times\n",
              running_["north"]->logged("the database is lost"),
              running_["north"]->logged("the database is back"));
}

void Scene::restart_the_server(DatabaseServer& server) {
  std::printf("the PostgreSQL server is killed, and started again\n");
  const std::size_t before = accepted();
  forget();
  LogIns log_ins(static_cast<unsigned short>(running_["north"]->port()), credentials());
  std::this_thread::sleep_for(kCalm);
  const auto begin = Clock::now();
  server.crash_and_restart();
  std::printf("  the server was away for %.1f s\n", seconds(Clock::now() - begin));
  const std::size_t good = log_ins.good;
  wait_until("somebody logs in", [&] { return log_ins.good > good; });
  std::printf("  the first log-in after it was answered %.1f s after the end\n",
              seconds(Clock::now() - begin));
  std::this_thread::sleep_for(kCalm);
  report(log_ins, before);
}

void Scene::cut_off_the_server(const DatabaseServer& server) {
  std::printf("nothing passes between the relay and the server for %ld s\n",
              static_cast<long>(kCutOff.count()));
  const std::size_t before = accepted();
  forget();
  LogIns log_ins(static_cast<unsigned short>(running_["north"]->port()), credentials());
  std::this_thread::sleep_for(kCalm);
  std::size_t good = 0;
  Clock::time_point begin;
  {
    const Firewall firewall(server.port());
    if (!firewall.works()) throw std::runtime_error("iptables cannot cut the connection");
    std::this_thread::sleep_for(kCutOff);
    begin = Clock::now();
    good = log_ins.good;
  }
  wait_until("somebody logs in", [&] { return log_ins.good > good; });
  std::printf("  the first log-in after it was answered %.1f s after the end\n",
              seconds(Clock::now() - begin));
  std::this_thread::sleep_for(kCalm);
  report(log_ins, before);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::size_t sessions = 100;
    read_options(argc, argv, {{"sessions", [&](const auto& value) { sessions = std::stoul(value); }}});
    const vantelink_test::TempFolder folder;
    DatabaseServer server(folder.path());
    Scene scene(sessions, server.url());
    scene.kill_a_relay();
    scene.start_it_again();
    scene.restart_the_server(server);
    scene.cut_off_the_server(server);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
