// Files and folders with secrets: only their owner may open them, and a crash leaves none of them incomplete.
#pragma once

#include <string>
#include <string_view>

namespace vlk::relay {

// Throws std::runtime_error with a sentence for the operator unless the file or folder belongs to the user
// that runs the relay and no other user can open it. The superuser may use the files of other users. `what`
// names it in the sentence, such as "the private key".
void require_private(const std::string& path, std::string_view what);

// Writes a temporary file beside `file`, renames it to `file`, and waits until both are on the disk. `mode`
// holds the permission bits of the new file. Throws std::runtime_error.
void write_durably(const std::string& file, std::string_view content, unsigned mode);

// Renames a file or folder within one file system, and waits until the new name is on the disk. A file of the
// new name is replaced. Throws std::runtime_error.
void rename_durably(const std::string& from, const std::string& to);

}  // namespace vlk::relay
