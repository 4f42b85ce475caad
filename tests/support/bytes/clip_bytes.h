// The bytes of clipboard messages and of the clipboard's own blocks, written out by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantelink_test {

// Big-endian, `size` bytes.
inline std::string number(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = size; i-- > 0;)
    bytes.push_back(static_cast<char>(value >> 8 * i));
  return bytes;
}

// One file of a list.
inline std::string record(std::string_view name, std::string_view data) {
  return number(name.size(), 4).append(name) + number(data.size(), 8).append(data);
}

// What stands in front of the paths in a block of CF_HDROP.
inline const std::string kDropHeader("\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0", 20);

}  // namespace vantelink_test
