// The form of a backup: a copy of the relay's database with one more table, backup_files, which has the names
// and contents of the small files of the data folder.
#pragma once

#include <cstdint>
#include <string>

#include "relay/storage/database.h"

namespace vlk::relay {

// In the header of the SQLite file, so that a backup and a database are not mistaken for each other.
inline constexpr std::int64_t kBackupMark = 0x564c4b42;

struct BackupCounts {
  std::int64_t machines = 0;
  std::int64_t people = 0;
  std::int64_t rows = 0;     // of the trail
  std::int64_t last_ms = 0;  // the time of the trail's newest row, since 1970; 0 if there is none
};

// As in "12 machines, 1 person, 4031 rows of the trail".
[[nodiscard]] std::string text_of(const BackupCounts& counts);

// True if the file begins like a backup. Throws std::runtime_error if it cannot be read.
[[nodiscard]] bool is_backup(const std::string& file);

// Reads the whole database of a backup: its pages, the relay's tables, and the trail's chain and signatures.
// `file` is the database's path. Throws std::runtime_error with what is wrong.
[[nodiscard]] BackupCounts verify_backup(const std::string& file);

}  // namespace vlk::relay
