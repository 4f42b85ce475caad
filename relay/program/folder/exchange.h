// Exchanges the database and the keys of a data folder as a whole: after a cut at any time the folder has the
// old files, or the next caller completes the exchange.
//
// The new files are prepared in the folder kDraftFolder. Its renaming to kCommitFolder decides: from then on
// the exchange takes place, and each of its steps can be repeated.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vlk::relay {

// Callers hold the exclusive lock of the data folder.
inline constexpr char kDraftFolder[] = "restore.new";
inline constexpr char kCommitFolder[] = "restore.commit";

// A file of a data folder that belongs to a backup besides the database.
struct SmallFile {
  const char* name;
  unsigned mode;  // permission bits
};
inline constexpr SmallFile kSmallFiles[] = {{"relay-cert.pem", 0644},      {"relay-key.pem", 0600},
                                            {"relay-next-cert.pem", 0644}, {"relay-next-key.pem", 0600},
                                            {"trail-key.pem", 0600},       {"trail-key.pub", 0644}};

// Makes an empty kDraftFolder and returns its path. Throws std::runtime_error.
[[nodiscard]] std::string make_draft(const std::string& data);
// Removes kDraftFolder with what is in it; does nothing if it is missing.
void remove_draft(const std::string& data);

// Decides that the files `names` of kDraftFolder take the place of all files of a backup in the data folder.
// What the folder has is to be kept in its subfolder `kept`. Throws std::runtime_error.
void commit_draft(const std::string& data, const std::vector<std::string>& names, const std::string& kept);

[[nodiscard]] bool exchange_is_cut_off(const std::string& data);

// Completes an exchange that was decided; does nothing if there is none. `before_step` is called before each
// change of the disk. Throws std::runtime_error.
void complete_exchange(const std::string& data, const std::function<void()>& before_step = {});

}  // namespace vlk::relay
