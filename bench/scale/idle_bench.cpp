// What 10,000 machines cost a relay while nothing happens, and how long they need to come back after its end.
//
// --agents=N sets the number of machines, --seconds=N the time in which the processor's use is measured.
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "fleet.h"
#include "options.h"
#include "process.h"
#include "relay/base/secrets.h"
#include "relay/storage/store.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace {

using namespace vantelink_bench;
using vantelink_test::RelayProcess;

constexpr std::chrono::seconds kSettle{20};  // longer than the interval of the heartbeats

struct Options {
  std::size_t agents = 10'000;
  std::chrono::seconds time{60};
  std::string database{};  // the URL of a PostgreSQL database, empty and thrown away; without it, a file
};

Options parsed(int argc, char** argv) {
  Options options;
  read_options(
      argc, argv,
      {{"agents", [&](const auto& value) { options.agents = std::stoul(value); }},
       {"seconds", [&](const auto& value) { options.time = std::chrono::seconds(std::stol(value)); }},
       {"database", [&](const auto& value) { options.database = value; }}});
  return options;
}

void run(const Options& options) {
  if (raise_open_files() < options.agents + 100)
    throw std::runtime_error("raise the limit of open files with ulimit -n");
  const vantelink_test::TempFolder folder;
  const std::string data = folder.path() / "data";
  std::filesystem::create_directories(data);
  vlk::relay::start_sodium();
  const std::string& database = options.database;
  vlk::relay::Store(database.empty() ? data + "/relay.db" : database).open_enrolment(600, std::nullopt);
  std::vector<std::string> arguments = {"--enrolments", "1000000"};
  if (!database.empty()) {
    arguments.insert(arguments.end(), {"--database", database, "--relay-name", "bench", "--relay-address",
                                       "https://localhost"});
  }
  auto relay = std::make_unique<RelayProcess>(data, arguments);
  const int port = relay->port();
  const double empty = memory(relay->pid());
  const Fleet fleet(options.agents, static_cast<unsigned short>(port));
  const double enrolled = fleet.wait_for_all();
  std::this_thread::sleep_for(kSettle);
  const double used = memory(relay->pid());
  const double before = processor(relay->pid());
  std::this_thread::sleep_for(options.time);
  const double spent = processor(relay->pid()) - before;
  relay->kill();
  fleet.wait_for_loss();
  const auto begin = Clock::now();
  relay = nullptr;
  arguments.insert(arguments.end(), {"--port", std::to_string(port)});
  relay = std::make_unique<RelayProcess>(data, arguments);
  fleet.wait_for_all();
  const double back = std::chrono::duration<double>(Clock::now() - begin).count();
  std::this_thread::sleep_for(kSettle);
  const double after = memory(relay->pid());
  const auto links = static_cast<double>(options.agents);
  std::printf("%zu machines\n", options.agents);
  std::printf("enrolled in                       %8.1f s\n", enrolled);
  std::printf("memory                            %8.1f MiB, %.1f KiB a link\n", used / 1024,
              (used - empty) / links);
  std::printf("processor at rest                 %8.2f %% of one\n",
              100 * spent / static_cast<double>(options.time.count()));
  std::printf("all back after kill -9 and start  %8.1f s\n", back);
  std::printf("memory after the return           %8.1f MiB, %.1f KiB a link\n", after / 1024,
              (after - empty) / links);
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
