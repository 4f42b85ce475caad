// Reads the table of kinds in docs/trail.md.
#include "relay/storage/trail/documented.h"

#include <fstream>

namespace vlk::relay {

std::map<std::string, std::string> documented_kinds() {
  std::map<std::string, std::string> kinds;
  std::ifstream in(std::string(VANTELINK_SOURCE_DIR) + "/docs/trail.md");
  bool in_table = false;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("## ")) in_table = line == "## Kinds";
    if (!in_table || !line.starts_with("| `")) continue;
    const std::size_t end = line.find('`', 3);
    kinds[line.substr(3, end - 3)] = line.substr(end);
  }
  return kinds;
}

}  // namespace vlk::relay
