// Counts machines, sessions and queues, and asks the system about the process.
#include "relay/metrics/readings.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace vlk::relay {
namespace {

template <class States, class State>
std::size_t place_of(const States& states, State state) {
  return static_cast<std::size_t>(std::ranges::find(states, state) - states.begin());
}

void read_machines(const Machines& machines, Readings& readings) {
  for (const auto& [id, record] : machines.records())
    ++readings.machines.at(place_of(kMachineStates, record.state));
  for (const auto& peer : machines.connections()) {
    readings.agent_queues += peer->channel->waiting_bytes();
    if (!peer->stream.watching().empty()) ++readings.streams;
  }
}

void read_sessions(const Parts& parts, Readings& readings) {
  for (const auto& [number, session] : parts.sessions.all()) {
    const std::size_t place = place_of(kSessionStates, session.state);
    if (place < readings.sessions.size()) ++readings.sessions.at(place);
    const PictureWay* way = session.accepted() ? parts.measures.of(number) : nullptr;
    if (way) readings.shown += way->ages.shown;
  }
}

void read_process(Readings& readings) {
  std::ifstream memory("/proc/self/statm");
  std::uint64_t all = 0;
  std::uint64_t resident = 0;  // in pages
  if (memory >> all >> resident)
    readings.resident = resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  std::error_code error;
  const std::filesystem::directory_iterator open("/proc/self/fd", error);
  // The reading itself has one of them open.
  if (!error) readings.descriptors = static_cast<std::size_t>(std::distance(begin(open), end(open))) - 1;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) readings.descriptor_limit = limit.rlim_cur;
}

}  // namespace

Readings read_now(const Sources& sources) {
  Readings readings;
  read_machines(sources.parts.machines, readings);
  for (const auto& peer : sources.parts.browsers.all())
    readings.browser_queues += peer->channel->waiting_bytes();
  read_sessions(sources.parts, readings);
  readings.database = sources.database.load();
  readings.data_free = free_bytes(sources.data);
  readings.spool_free = free_bytes(sources.data / "spool");
  read_process(readings);
  return readings;
}

// The system knows this without a look at the disk.
std::uint64_t free_bytes(const std::filesystem::path& folder) {
  std::error_code error;
  const auto space = std::filesystem::space(folder, error);
  return error ? 0 : space.available;
}

}  // namespace vlk::relay
