// The console's files in the source tree.
#pragma once

#include <vector>

#include "relay/http/console/console_files.h"

namespace vlk::relay {

[[nodiscard]] std::vector<ConsoleFile> console_in_tree();

}  // namespace vlk::relay
