// Whole files as strings. Programs for Windows include this file without the support library, so it has no
// .cpp.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vantelink_test {

// The file's contents; empty when there is no such file.
inline std::string file_bytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace vantelink_test
