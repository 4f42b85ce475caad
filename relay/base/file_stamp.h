// Notices that a file was replaced or written.
#pragma once

#include <sys/stat.h>

#include <string>

namespace vlk::relay {

// A text that changes when the file at `path` is added, removed, replaced or written; a link counts as its
// target. Empty if there is no file.
[[nodiscard]] inline std::string file_stamp(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  std::string stamp;
  for (const auto number :
       {static_cast<long long>(status.st_ino), static_cast<long long>(status.st_size),
        static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
        static_cast<long long>(status.st_ctim.tv_sec), static_cast<long long>(status.st_ctim.tv_nsec)})
    stamp += '/' + std::to_string(number);
  return stamp;
}

}  // namespace vlk::relay
