// The number of this process's threads, for tests of when a thread starts and ends.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace vantelink_test {

inline std::size_t threads() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

}  // namespace vantelink_test
