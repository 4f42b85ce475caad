// Checks the clock, the disk, the limits and the environment.
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "relay/net/descriptors.h"
#include "relay/program/check/checks.h"
#include "relay/program/option_table.h"
#include "relay/storage/trail/entry.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

constexpr std::uint64_t kMebibyte = 1u << 20;
// The spool always leaves this much of the disk free.
constexpr std::uint64_t kSpoolReserve = 1024;
// What the database needs at least, to go on for a while, in MiB.
constexpr std::uint64_t kDatabaseReserve = 256;

// The path, or the nearest folder above it that exists.
fs::path existing(const std::string& path) {
  std::error_code error;
  fs::path at = fs::absolute(path);
  while (!fs::exists(at, error) && at.has_relative_path())
    at = at.parent_path();
  return at;
}

// Where the spool is on a disk of its own, the two figures differ.
std::uint64_t free_mebibytes(const fs::path& path) {
  struct statvfs status {};
  if (::statvfs(path.c_str(), &status) != 0)
    throw std::runtime_error("the free space of " + path.string() +
                             " cannot be read: " + std::strerror(errno));
  return std::uint64_t{status.f_bavail} * status.f_frsize / kMebibyte;
}

}  // namespace

void check_clock(Findings& findings) {
  const auto built = parse_iso_time(std::string(VANTELINK_BUILD_DAY) + "T00:00:00.000Z");
  const std::string now = iso_time(trail_now());
  if (built && trail_now() < *built) {
    return findings.wrong("the clock says " + now + ", before this program was built (" +
                          VANTELINK_BUILD_DAY +
                          "); set it, because certificates, log-ins and the audit trail depend on it");
  }
  timex state{};
  const int answer = ::adjtimex(&state);
  if (answer < 0)
    return findings.warning("the system does not say whether its clock is synchronised; see that it is");
  if (answer == TIME_ERROR || (state.status & STA_UNSYNC) != 0) {
    return findings.warning("the clock (" + now +
                            ") is not kept synchronised; run a time service, such as systemd-timesyncd");
  }
  findings.ok("the clock (" + now + ") is kept synchronised");
}

void check_disk(const Options& options, Findings& findings) {
  try {
    const fs::path data = existing(options.data);
    const std::uint64_t room = free_mebibytes(data);
    if (room < kDatabaseReserve) {
      findings.wrong("the disk of " + data.string() + " has " + std::to_string(room) +
                     " MiB left for the database; free some space");
    }
    const fs::path spool = existing(options.data + "/spool");
    const std::uint64_t spool_room = free_mebibytes(spool);
    const std::uint64_t needed = options.spools_mib + kSpoolReserve;
    const std::string has =
        "the disk of " + spool.string() + " has " + std::to_string(spool_room) + " MiB left";
    if (spool_room >= needed) return findings.ok(has + ", and downloads may take " + std::to_string(needed));
    findings.warning(has + ", less than --spools and a gigabyte (" + std::to_string(needed) +
                     " MiB), so downloads may end with an error; free some space, or give --spools a smaller "
                     "number");
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
  }
}

void check_descriptors(const Options& options, Findings& findings) {
  try {
    // The limit belongs to this process alone.
    raise_descriptor_limit(options.connections);
    findings.ok("the system allows the file descriptors for " + std::to_string(options.connections) +
                " connections");
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
  }
}

void check_environment(Findings& findings) {
  const std::string prefix = variable_of("");
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    if (!name.starts_with(prefix)) continue;
    bool known = false;
    for (const OptionGroup& group : option_groups()) {
      for (const OptionRule& rule : group.rules) {
        const bool settable = rule.kind != OptionRule::Kind::Action || std::string(rule.name) == "config";
        known = known || (settable && variable_of(rule.name) == name);
      }
    }
    if (!known)
      findings.warning("the variable " + name + " of the environment is not a setting; check its name");
  }
}

}  // namespace vlk::relay
