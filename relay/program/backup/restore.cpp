// Prepares the files of a backup in a draft of the data folder, and exchanges them.
#include "relay/program/backup/restore.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "relay/net/private_files.h"
#include "relay/program/folder/exchange.h"
#include "relay/storage/store.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/entry.h"
#include "relay/storage/trail/key.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

constexpr std::int64_t kLargestFile = 1 << 20;

void copy_file(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::copy_file(from, to, error);
  if (error) throw std::runtime_error("cannot copy it to " + to + ": " + error.message());
  fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write);
}

// Writes the small files into the folder and returns their names.
std::vector<std::string> unpack(Database& database, const std::string& folder) {
  std::vector<std::string> names;
  Statement files(database, "SELECT name, content, length(content) FROM backup_files ORDER BY name");
  while (files.step()) {
    const std::string name = files.text(0);
    const auto* known = std::find_if(std::begin(kSmallFiles), std::end(kSmallFiles),
                                     [&](const SmallFile& file) { return name == file.name; });
    if (known == std::end(kSmallFiles) || files.number(2) > kLargestFile)
      throw std::runtime_error("it has a file that no backup has, \"" + name + "\"");
    const Bytes content = files.bytes(1);
    write_durably(folder + '/' + name, {reinterpret_cast<const char*>(content.data()), content.size()},
                  known->mode);
    names.push_back(name);
  }
  return names;
}

// Brings the tables to this relay's version, ends all log-ins and records the restore.
void bring_up_to_date(const std::string& file, const std::string& source) {
  Store store(file);
  Database& database = store.database();
  Transaction transaction(database);
  // A log-in that has ended since the backup, because its owner logged out, the password was changed or an
  // administrator ended it, would be valid again, for whoever has its cookie. So everybody logs in again.
  database.execute("DELETE FROM logins");
  append_trail(database,
               std::array{trail_entry<TrailKind::BackupRestored>({.actor = kTrailCommandLine}, source)});
  transaction.commit();
}

// Makes a database out of the copy of a backup.
std::vector<std::string> prepare(const std::string& draft, const std::string& source) {
  const std::string file = draft + '/' + kDatabaseFile;
  std::vector<std::string> names;
  {
    Database copy = Database::draft(file);
    // What is removed is overwritten: the database must not have the private keys in its free pages.
    copy.execute("PRAGMA secure_delete=ON");
    names = unpack(copy, draft);
    copy.execute("DROP TABLE backup_files; PRAGMA application_id=0");
  }
  if (std::find(names.begin(), names.end(), kTrailKeyFile) != names.end() &&
      TrailKey::load_or_make(draft).public_part() != read_trail_public_key(draft + '/' + kTrailPublicFile))
    throw std::runtime_error("the two keys of its audit trail do not belong together");
  bring_up_to_date(file, source);
  if (fs::exists(file + "-wal")) throw std::runtime_error("the new database could not be closed");
  names.emplace_back(kDatabaseFile);
  return names;
}

// The name of a new folder for the old data.
std::string name_for_kept(const std::string& data) {
  const std::string time = "before-restore-" + time_for_name();
  std::string name = time;
  for (int i = 2; fs::exists(fs::path(data) / name); ++i)
    name = time + '-' + std::to_string(i);
  return name;
}

}  // namespace

BackupRestored restore_backup(const DataFolder& data, const std::string& file, bool replace) {
  if (!is_backup(file)) throw std::runtime_error(file + " is not a backup of the relay");
  if (!replace && fs::exists(data.database())) {
    throw std::runtime_error(
        "the data folder " + data.path() +
        " has a database; with --replace it is kept in a folder of its own, and the backup "
        "takes its place");
  }
  BackupRestored restored;
  const std::string kept = name_for_kept(data.path());
  try {
    const std::string draft = make_draft(data.path());
    const std::string copy = draft + '/' + kDatabaseFile;
    copy_file(file, copy);
    restored.counts = verify_backup(copy);
    commit_draft(data.path(), prepare(draft, fs::absolute(file)), kept);
  } catch (const std::exception& failure) {
    remove_draft(data.path());
    throw std::runtime_error(file + " was not restored, and the data are as they were: " + failure.what());
  }
  try {
    complete_exchange(data.path());
  } catch (const std::exception& failure) {
    throw std::runtime_error(file + " is not wholly restored: " + failure.what() +
                             "; the next start of the relay on this folder goes on with it");
  }
  if (fs::exists(fs::path(data.path()) / kept)) restored.kept = data.path() + '/' + kept;
  return restored;
}

}  // namespace vlk::relay
