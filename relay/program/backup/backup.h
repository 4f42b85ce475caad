// Writes a backup of a data folder while the relay runs.
#pragma once

#include <cstdint>
#include <string>

#include "relay/program/backup/backup_file.h"
#include "relay/program/folder/data_folder.h"

namespace vlk::relay {

struct BackupMade {
  BackupCounts counts;
  std::uintmax_t bytes = 0;
};

// Writes the backup beside `file`, verifies it, records it in the trail, and then gives it its name. An older
// backup of that name is replaced. Throws std::runtime_error with a sentence; then `file` is as it was.
[[nodiscard]] BackupMade make_backup(const DataFolder& data, const std::string& file);

}  // namespace vlk::relay
