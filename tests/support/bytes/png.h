// PNG files made by hand, so that what a test feeds an image decoder does not come from that decoder's own
// library. Uncompressed (RFC 1950 and 1951, stored blocks; RFC 2083, 32-bit colour).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantelink_test {
namespace png {

inline constexpr std::size_t kStoredBlock = 0xFFFF;  // most bytes of one stored block

inline std::string big_endian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift);
  return bytes;
}

inline std::uint32_t crc(std::string_view bytes) {
  static const auto table = [] {
    std::array<std::uint32_t, 256> made{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      made[i] = i;
      for (int bit = 0; bit < 8; ++bit)
        made[i] = (made[i] & 1) != 0 ? 0xEDB88320u ^ made[i] >> 1 : made[i] >> 1;
    }
    return made;
  }();
  std::uint32_t value = 0xFFFFFFFF;
  for (const char c : bytes)
    value = table[(value ^ static_cast<std::uint8_t>(c)) & 0xFF] ^ value >> 8;
  return ~value;
}

inline std::string chunk(std::string_view type, std::string_view data) {
  const std::string body = std::string(type).append(data);
  return big_endian(static_cast<std::uint32_t>(data.size())) + body + big_endian(crc(body));
}

inline std::string zlib(std::string_view data) {
  std::string bytes = "\x78\x01";
  std::uint32_t low = 1;
  std::uint32_t high = 0;
  for (const char c : data) {
    low = (low + static_cast<std::uint8_t>(c)) % 65521;
    high = (high + low) % 65521;
  }
  do {
    const std::string_view block = data.substr(0, kStoredBlock);
    data.remove_prefix(block.size());
    const auto size = static_cast<std::uint16_t>(block.size());
    bytes += static_cast<char>(data.empty());
    for (const std::uint16_t number : {size, static_cast<std::uint16_t>(~size)}) {
      bytes += static_cast<char>(number);
      bytes += static_cast<char>(number >> 8);
    }
    bytes += block;
  } while (!data.empty());
  return bytes + big_endian(high << 16 | low);
}

}  // namespace png

// A PNG file of pixels of 4 bytes each, red, green, blue, alpha, from the upper left on.
inline std::string make_png(std::uint32_t width, std::uint32_t height, std::string_view pixels) {
  std::string rows;
  const std::size_t row_size = std::size_t{width} * 4;
  for (std::size_t at = 0; at < pixels.size(); at += row_size) {
    rows += '\0';  // no filter
    rows += pixels.substr(at, row_size);
  }
  const std::string header =
      png::big_endian(width) + png::big_endian(height) + std::string("\x08\x06\x00\x00\x00", 5);
  return "\x89PNG\r\n\x1A\n" + png::chunk("IHDR", header) + png::chunk("IDAT", png::zlib(rows)) +
         png::chunk("IEND", {});
}

}  // namespace vantelink_test
