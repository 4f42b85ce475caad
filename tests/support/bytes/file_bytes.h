// A file as a test compares it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vantelink_test {

// All of the file; empty when there is none.
inline std::string file_bytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace vantelink_test
