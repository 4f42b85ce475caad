// Takes the locks, and says what was done.
#include "relay/program/backup/command.h"

#include <cstdio>
#include <filesystem>
#include <ostream>
#include <stdexcept>

#include "relay/program/backup/backup.h"
#include "relay/program/backup/restore.h"
#include "relay/storage/engine/address.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {
namespace {

std::string mebibytes(std::uintmax_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
  return text;
}

// The server has its own tools, which know how to copy a database that changes.
void require_file(const Options& options) {
  if (options.database.empty()) return;
  throw std::runtime_error(
      "the database is " + shown_address(options.database) +
      "; back it up and restore it with pg_dump and pg_restore, and copy the files *.pem of " + options.data +
      " beside it");
}

}  // namespace

void backup_command(const Options& options, std::ostream& out) {
  require_file(options);
  // A data folder that is made because its name was mistyped would be backed up empty.
  if (!std::filesystem::is_directory(options.data))
    throw std::runtime_error("there is no data folder " + options.data + "; name it with --data");
  const DataFolder data(options.data);
  const BackupMade made = make_backup(data, options.file);
  out << "backed up: " << text_of(made.counts) << ", to " << options.file << " (" << mebibytes(made.bytes)
      << ")\n";
}

void restore_command(const Options& options, std::ostream& out) {
  require_file(options);
  const DataFolder data(options.data, FileLock::Mode::Exclusive);
  const FileLock no_relay = claim_for_relay(options.data);
  const BackupRestored restored = restore_backup(data, options.file, options.replace);
  out << "restored: " << text_of(restored.counts) << ", from " << options.file << " to " << options.data
      << '\n';
  if (restored.counts.last_ms > 0)
    out << "The newest row of the trail is of " << iso_time(restored.counts.last_ms) << ".\n";
  if (!restored.kept.empty()) out << "What the folder had is in " << restored.kept << ".\n";
  out << "All people log in again.\n";
}

}  // namespace vlk::relay
