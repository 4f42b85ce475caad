// Bytes of clipboard messages and of Windows' clipboard blocks, built by hand. Tests under Windows include
// this file without the support library, so it has no .cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantelink_test {

// The value as `size` bytes, big-endian.
inline std::string number(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = size; i-- > 0;)
    bytes.push_back(static_cast<char>(value >> 8 * i));
  return bytes;
}

// One file in a message's list of files.
inline std::string record(std::string_view name, std::string_view data) {
  return number(name.size(), 4).append(name) + number(data.size(), 8).append(data);
}

// The header of a CF_HDROP block. The paths follow the header.
inline const std::string kDropHeader("\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0", 20);

}  // namespace vantelink_test
