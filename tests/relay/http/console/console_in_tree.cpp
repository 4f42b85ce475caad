// Reads the console of the source tree. This file alone is compiled with the tree's path.
#include "relay/http/console/console_in_tree.h"

#include <string>

namespace vlk::relay {

std::vector<ConsoleFile> console_in_tree() {
  return console_files_in(std::string(VANTELINK_SOURCE_DIR) + "/console");
}

}  // namespace vlk::relay
