// Texts that are made from the table of options.
#pragma once

#include <string>

namespace vlk::relay {

// The output of --help.
[[nodiscard]] std::string help_text();

// A configuration file with each setting as a comment.
[[nodiscard]] std::string example_config();

}  // namespace vlk::relay
