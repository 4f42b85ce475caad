// Reads files of the source tree.
#include "relay/base/source_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vlk::relay {

std::string source_path(const std::string& name) {
  return std::string(VANTELINK_SOURCE_DIR) + '/' + name;
}

std::string source_file(const std::string& name) {
  std::ifstream in(source_path(name), std::ios::binary);
  if (!in) throw std::runtime_error("there is no file " + source_path(name));
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace vlk::relay
