// 32-bit integers in network byte order, the most significant byte first.
#pragma once

#include <cstdint>

namespace vlk {

inline void put_u32_be(unsigned char* out, std::uint32_t value) {
  out[0] = static_cast<unsigned char>(value >> 24);
  out[1] = static_cast<unsigned char>(value >> 16);
  out[2] = static_cast<unsigned char>(value >> 8);
  out[3] = static_cast<unsigned char>(value);
}

[[nodiscard]] inline std::uint32_t get_u32_be(const unsigned char* in) {
  return std::uint32_t{in[0]} << 24 | std::uint32_t{in[1]} << 16 | std::uint32_t{in[2]} << 8 |
         std::uint32_t{in[3]};
}

}  // namespace vlk
