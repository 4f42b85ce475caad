// Checks the data folder and the database, and reads them only.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <thread>

#include "relay/net/private_files.h"
#include "relay/program/check/checks.h"
#include "relay/program/folder/data_folder.h"
#include "relay/program/folder/exchange.h"
#include "relay/storage/database.h"
#include "relay/storage/schema.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/entry.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

// Files that only the relay's user may open.
constexpr const char* kPrivateFiles[] = {"relay.db",      "relay.db-wal",   "relay.db-shm",
                                         "relay-key.pem", "relay-leaf.pem", "relay-next-key.pem",
                                         "trail-key.pem", "first-password"};
// The lock of those who write the database, in the file of its shared memory; SQLite's format of that file
// fixes its place.
constexpr off_t kWriteLockAt = 120;
// A lock that is held at each of so many looks is held for long.
constexpr int kLooks = 40;
constexpr std::chrono::milliseconds kBetweenLooks{40};
// Clocks may be set back by as much.
constexpr std::int64_t kClockSlackMs = 10'000;

bool is_private(const std::string& path, const std::string& what, Findings& findings) {
  try {
    require_private(path, what);
    return true;
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
    return false;
  }
}

// A command that the superuser ran may have left a file that the relay's user cannot open.
bool has_owner_of(const std::string& folder, const std::string& file, Findings& findings) {
  struct stat of_folder {};
  struct stat of_file {};
  if (::stat(folder.c_str(), &of_folder) != 0 || ::stat(file.c_str(), &of_file) != 0) return true;
  if (of_folder.st_uid == of_file.st_uid) return true;
  findings.wrong(file + " does not belong to the user of the data folder (id " +
                 std::to_string(of_folder.st_uid) + "); run: chown " + std::to_string(of_folder.st_uid) +
                 ' ' + file);
  return false;
}

// The process that writes the database at this moment; 0 if none does.
pid_t writer_of(const std::string& shared_memory) {
  const int descriptor = ::open(shared_memory.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return 0;
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = kWriteLockAt;
  lock.l_len = 1;
  const bool known = ::fcntl(descriptor, F_GETLK, &lock) == 0;
  ::close(descriptor);
  return known && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

void check_lock(const std::string& file, Findings& findings) {
  pid_t writer = 0;
  for (int look = 0; look < kLooks; ++look) {
    if (look > 0) std::this_thread::sleep_for(kBetweenLooks);
    writer = writer_of(file + "-shm");
    if (writer == 0) return;
  }
  findings.wrong(
      "process " + std::to_string(writer) +
      " has locked the database for more than a second, so the relay cannot store anything; end it");
}

void check_version(Database& database, Findings& findings) {
  const std::int64_t version = schema_version(database);
  if (version > kSchemaVersion)
    return findings.wrong("the database was written by a newer version of the relay; use that version");
  if (version < kSchemaVersion) {
    findings.warning(
        "the database was written by an older version of the relay, and the next start changes its tables; "
        "make "
        "a backup first");
  }
}

void check_newest_row(Database& database, Findings& findings) {
  if (schema_version(database) != kSchemaVersion) return;
  const std::int64_t newest = trail_end(database).time_ms;
  if (newest <= trail_now() + kClockSlackMs) return;
  findings.wrong("the clock says " + iso_time(trail_now()) + ", before the newest row of the audit trail (" +
                 iso_time(newest) + "); set the clock");
}

void check_content(const std::string& file, Findings& findings) {
  // Opening a database that nobody uses in the usual way would make files beside it.
  Database database = fs::exists(file + "-wal") ? Database::read_only(file) : Database::unchanging(file);
  Statement check(database, "PRAGMA quick_check(1)");
  if (!check.step() || check.text(0) != "ok") {
    return findings.wrong("the database " + file + " is damaged (" + check.text(0) +
                          "); stop the relay and restore a backup");
  }
  const std::size_t before = findings.list().size();
  check_version(database, findings);
  check_newest_row(database, findings);
  if (findings.list().size() == before) findings.ok("the database " + file + " is whole");
}

// The relay's user needs a database whose tables it may create, and the extension for searches by text.
void check_server(const std::string& url, Findings& findings) {
  const std::string shown = shown_address(url);
  try {
    Database database = Database::read_only(url);
    const std::size_t before = findings.list().size();
    if (schema_version(database) == 0) {
      if (!Statement(database, "SELECT 1 FROM pg_available_extensions WHERE name = 'pg_trgm'").step())
        findings.wrong("the server of " + shown +
                       " does not have the extension pg_trgm; install the server's "
                       "package of contributed extensions");
      Statement right(database, "SELECT 1 WHERE has_schema_privilege(current_schema(), 'CREATE')");
      if (!right.step())
        findings.wrong("the user of " + shown + " may not create tables; make it the owner of the database");
    } else {
      check_version(database, findings);
      check_newest_row(database, findings);
    }
    if (findings.list().size() == before) findings.ok("the database " + shown + " can be used");
  } catch (const std::runtime_error& failure) {
    findings.wrong("the database " + shown + " cannot be used: " + failure.what());
  }
}

}  // namespace

void check_data_folder(const Options& options, Findings& findings) {
  const std::string& data = options.data;
  std::error_code error;
  if (!fs::exists(data, error) && !error) {
    return findings.ok("there is no data folder " + data + " yet; the next start of the relay makes it");
  }
  bool good = is_private(data, "the data folder", findings);
  for (const char* name : kPrivateFiles) {
    const std::string file = data + '/' + name;
    if (!fs::exists(file, error)) continue;
    good = is_private(file, "the file", findings) && good;
    good = has_owner_of(data, file, findings) && good;
  }
  if (::access(data.c_str(), R_OK | W_OK | X_OK) != 0) {
    good = false;
    findings.wrong("this user cannot read and write the data folder " + data +
                   "; run the check as the relay's user");
  } else if (exchange_is_cut_off(data)) {
    good = false;
    findings.wrong("a restore into " + data + " is not complete; start the relay, which goes on with it");
  }
  if (good) findings.ok("the data folder " + data + " is private");
}

void check_database(const Options& options, Findings& findings) {
  if (!options.database.empty()) return check_server(options.database, findings);
  const std::string file = options.data + '/' + kDatabaseFile;
  std::error_code error;
  if (!fs::exists(file, error)) {
    if (!error) findings.ok("there is no database yet; the next start of the relay makes it");
    return;
  }
  try {
    // First, because the lock is looked at through a descriptor of its own.
    check_lock(file, findings);
    check_content(file, findings);
  } catch (const std::runtime_error& failure) {
    findings.wrong("the database " + file + " cannot be read: " + failure.what() +
                   " If it is damaged, stop the relay and restore a backup.");
  }
}

}  // namespace vlk::relay
