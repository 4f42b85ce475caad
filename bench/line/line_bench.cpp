// Pictures, key presses and a download over slow lines between a machine and the relay, and between the relay
// and a viewer. The relay is its own process. Each line and side is a process too; they run at the same time.
//
// --benchmark_filter=REGEX chooses lines and sides by name, --seconds=N sets the time of the measurement,
// --netem uses the system's emulator of slow lines where there is one, --no-download leaves the download out,
// --upload adds an upload, --quality=PRESET lets the stream's rates follow the line instead of 30 pictures
// and 1.5 Mbit a second.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "figures.h"
#include "netem.h"
#include "scenario.h"

namespace {

using namespace vantelink_bench;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr double kMega = 1e6;

std::vector<Scenario> scenarios() {
  const vlk::relay::LineRules usual{.bits_per_second = 10 * kMega, .delay = milliseconds(25)};
  return {
      {"10-mbit", usual},
      {"2-mbit-600-ms-lossy", {.bits_per_second = 2 * kMega, .delay = milliseconds(300), .loss = 0.01}},
      {"half-mbit", {.bits_per_second = kMega / 2, .delay = milliseconds(25)}},
      {"gone-20-s", usual, seconds(20)},
      {"gone-60-s", usual, seconds(60)},
      {"gone-300-s", usual, seconds(300)},
  };
}

struct Options {
  std::regex filter{"."};
  Conditions conditions;
};

Options parsed(int argc, char** argv) {
  Options options;
  const std::string filter = "--benchmark_filter=", time = "--seconds=", quality = "--quality=";
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.starts_with(filter)) {
      options.filter = argument.substr(filter.size());
    } else if (argument.starts_with(time)) {
      options.conditions.time = seconds(std::stol(argument.substr(time.size())));
    } else if (argument.starts_with(quality)) {
      options.conditions.quality = argument.substr(quality.size());
    } else if (argument == "--netem") {
      options.conditions.means = Means::Netem;
    } else if (argument == "--no-download") {
      options.conditions.download = false;
    } else if (argument == "--upload") {
      options.conditions.upload = true;
    } else {
      throw std::runtime_error("the options are " + filter + "REGEX, " + time + "N, " + quality +
                               "PRESET, --netem, --no-download and --upload");
    }
  }
  return options;
}

// A process that runs one scenario, and the pipe on which it returns its row.
struct Child {
  std::string name;
  pid_t pid;
  int row;
};

Child start(const std::string& name, const Scenario& scenario, Side side, const Options& options) {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("pipe failed");
  std::fflush(stdout);
  const pid_t pid = ::fork();
  if (pid != 0) {
    ::close(ends[1]);
    return {name, pid, ends[0]};
  }
  std::string row;
  int status = 0;
  try {
    row = run(scenario, side, options.conditions);
  } catch (const std::exception& failure) {
    row = std::string("| failed: ") + failure.what();
    status = 1;
  }
  (void)!::write(ends[1], row.data(), row.size());
  ::_exit(status);
}

bool finish(const Child& child) {
  std::string row;
  char part[4096];
  for (ssize_t count = 0; (count = ::read(child.row, part, sizeof part)) > 0;)
    row.append(part, static_cast<std::size_t>(count));
  int status = 0;
  ::waitpid(child.pid, &status, 0);
  std::printf("| %s %s\n", child.name.c_str(), row.c_str());
  std::fflush(stdout);
  return status == 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options = parsed(argc, argv);
    const std::string missing = options.conditions.means == Means::Netem ? netem_missing() : "";
    if (!missing.empty()) {
      std::printf("netem cannot be used (%s); the proxy takes its place\n", missing.c_str());
      options.conditions.means = Means::Proxy;
    }
    std::vector<Child> children;
    for (const Scenario& scenario : scenarios()) {
      for (const auto& [side, end] :
           {std::pair{Side::Machine, "machine"}, std::pair{Side::Viewer, "viewer"}}) {
        const std::string name = scenario.name + ", " + end;
        if (std::regex_search("Line/" + name, options.filter))
          children.push_back(start(name, scenario, side, options));
      }
    }
    if (children.empty()) return 0;
    std::printf("| Line, side %s\n|---|---|---|---|---|---|---|\n", Figures::header().c_str());
    bool good = true;
    for (const Child& child : children)
      good &= finish(child);
    return good ? 0 : 1;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
