// Puts a backup into a data folder.
#pragma once

#include <string>

#include "relay/program/backup/backup_file.h"
#include "relay/program/folder/data_folder.h"

namespace vlk::relay {

struct BackupRestored {
  BackupCounts counts;
  std::string kept;  // the folder with what the data folder had; empty if it had nothing
};

// Verifies a copy of the backup, and lets it take the place of the folder's database and keys; with `replace`
// these may exist. The caller has locked the folder for itself. Throws std::runtime_error with a sentence;
// then the folder has its old data.
[[nodiscard]] BackupRestored restore_backup(const DataFolder& data, const std::string& file, bool replace);

}  // namespace vlk::relay
