// The folder of the spool's files. It is empty except while a file is being made.
#pragma once

#include <filesystem>

namespace vlk::relay {

// Makes the folder with mode 0700 if it is missing, removes the files that an earlier run has left in it, and
// makes a file on trial. Files that are not the spool's are left alone. Returns the folder. Throws
// std::runtime_error with a sentence for the operator if the folder cannot be used.
[[nodiscard]] std::filesystem::path prepare_spool_folder(std::filesystem::path folder);

// Makes an empty file with mode 0600 that has no name any more, so that it vanishes with the process, however
// the process ends. Returns its descriptor, or -1 with the reason in errno.
[[nodiscard]] int make_nameless_file(const std::filesystem::path& folder);

}  // namespace vlk::relay
