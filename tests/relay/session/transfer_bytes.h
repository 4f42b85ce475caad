// Builds the bytes of file transfer messages.
#pragma once

#include <cstdint>
#include <string>

#include "relay/wire/envelope.h"

namespace vlk::relay {

inline std::string big_endian(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(number >> shift);
  return bytes;
}

inline std::string chunk(std::uint32_t transfer, const std::string& content, std::uint32_t index = 0) {
  return big_endian(transfer) + big_endian(index) + content;
}

inline Bytes envelope(Msg type, std::uint32_t session, const std::string& payload) {
  return encode_envelope(type, session, reinterpret_cast<const unsigned char*>(payload.data()),
                         payload.size(), 0);
}

}  // namespace vlk::relay
