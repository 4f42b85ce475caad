// Emulation prevention: after two bytes 0, a byte 3 is inserted if the next byte is below 4.
#include "relay/stream/h264/bits.h"

namespace vlk::relay {

Bytes without_emulation_bytes(std::span<const std::uint8_t> unit) {
  Bytes out;
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

Bytes with_emulation_bytes(std::span<const std::uint8_t> unit) {
  Bytes out;
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
