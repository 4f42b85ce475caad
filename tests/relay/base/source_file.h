// Reads files of the source tree.
#pragma once

#include <string>

namespace vlk::relay {

// The path of a file, which is given relative to the root of the source tree.
[[nodiscard]] std::string source_path(const std::string& name);

// The content of a file of the source tree. Throws std::runtime_error if there is none.
[[nodiscard]] std::string source_file(const std::string& name);

}  // namespace vlk::relay
