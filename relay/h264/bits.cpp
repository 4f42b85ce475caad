// Emulation prevention: two zeros are followed by a 3 wherever a byte below 4 would come next.
#include "relay/h264/bits.h"

namespace vlk::relay {

std::vector<std::uint8_t> without_emulation_bytes(std::span<const std::uint8_t> unit) {
  std::vector<std::uint8_t> out;
  out.reserve(unit.size());
  unsigned zeros = 0;
  for (const std::uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  return out;
}

std::vector<std::uint8_t> with_emulation_bytes(std::span<const std::uint8_t> unit) {
  std::vector<std::uint8_t> out;
  out.reserve(unit.size() + 8);
  unsigned zeros = 0;
  for (const std::uint8_t byte : unit) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  return out;
}

}  // namespace vlk::relay
