// Writes PNG files (RFC 2083) with 8 bits a sample and an alpha channel. The data is not compressed: it is in
// stored blocks (RFC 1950 and 1951).
#include "support/bytes/png.h"

#include <array>
#include <cstddef>

#include "support/bytes/clip_bytes.h"

namespace vantelink_test {
namespace {

constexpr std::size_t kStoredBlock = 0xFFFF;    // the largest size of a stored block, in bytes
constexpr std::uint32_t kAdlerModulus = 65521;  // the modulus of the checksum Adler-32

std::uint32_t crc(std::string_view bytes) {
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

std::string chunk(std::string_view type, std::string_view data) {
  const std::string body = std::string(type).append(data);
  return number(data.size(), 4) + body + number(crc(body), 4);
}

std::string zlib(std::string_view data) {
  std::string bytes = "\x78\x01";
  std::uint32_t low = 1;
  std::uint32_t high = 0;
  for (const char c : data) {
    low = (low + static_cast<std::uint8_t>(c)) % kAdlerModulus;
    high = (high + low) % kAdlerModulus;
  }
  do {
    const std::string_view block = data.substr(0, kStoredBlock);
    data.remove_prefix(block.size());
    const auto size = static_cast<std::uint16_t>(block.size());
    bytes += static_cast<char>(data.empty());
    for (const std::uint16_t length : {size, static_cast<std::uint16_t>(~size)}) {
      bytes += static_cast<char>(length);
      bytes += static_cast<char>(length >> 8);
    }
    bytes += block;
  } while (!data.empty());
  return bytes + number(high << 16 | low, 4);
}

}  // namespace

std::string make_png(std::uint32_t width, std::uint32_t height, std::string_view pixels) {
  std::string rows;
  const std::size_t row_size = std::size_t{width} * 4;
  for (std::size_t at = 0; at < pixels.size(); at += row_size) {
    rows += '\0';  // the filter type of the row: none
    rows += pixels.substr(at, row_size);
  }
  const std::string header = number(width, 4) + number(height, 4) + std::string("\x08\x06\x00\x00\x00", 5);
  return "\x89PNG\r\n\x1A\n" + chunk("IHDR", header) + chunk("IDAT", zlib(rows)) + chunk("IEND", {});
}

}  // namespace vantelink_test
