// The data folder and who uses it: any number of commands or one restore, and besides the commands one relay.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "relay/program/folder/file_lock.h"

namespace vlk::relay {

inline constexpr char kDatabaseFile[] = "relay.db";
inline constexpr char kRelayLockFile[] = "relay.lock";

// Keeps a restore out of the folder as long as it exists, or everybody else for the sake of a restore.
class DataFolder {
 public:
  // Makes the folder with mode 0700 if it is missing, and completes a restore that was cut off. Throws
  // std::runtime_error with a sentence for the operator if others can open the folder, or if it is in use.
  explicit DataFolder(const std::string& folder, FileLock::Mode mode = FileLock::Mode::Shared);

  [[nodiscard]] const std::string& path() const { return folder_; }
  [[nodiscard]] std::string database() const { return folder_ + '/' + kDatabaseFile; }

 private:
  std::string folder_;
  std::optional<FileLock> lock_;
};

// Keeps a second relay out of the folder as long as the result exists. Throws std::runtime_error with a
// sentence if a relay uses the folder.
[[nodiscard]] FileLock claim_for_relay(const std::string& folder);

// The id of the relay's process that uses the folder; nothing if none does, or if it cannot be found out.
// Changes nothing.
[[nodiscard]] std::optional<pid_t> relay_of(const std::string& folder);

// The present time for the name of something that is kept, as in "20261123T124500Z".
[[nodiscard]] std::string time_for_name();

}  // namespace vlk::relay
