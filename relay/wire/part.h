// The header of a part: a long message to a browser is sent as several binary WebSocket messages, each with a
// part of its bytes, as described in docs/console-protocol.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vlk::relay {

inline constexpr std::size_t kPartHeaderSize = 2;

// The first byte of a part, which no envelope begins with: no message has the code 0.
inline constexpr std::uint8_t kPartMark = 0;

// The second byte of a part. Its upper four bits are the number of the message's lane: parts of messages in
// different lanes can alternate.
enum PartFlag : std::uint8_t {
  kFirstPart = 1,
  kLastPart = 2,
  kTextPart = 4,  // the whole message is text
};
inline constexpr unsigned kPartLaneShift = 4;

[[nodiscard]] constexpr std::array<std::uint8_t, kPartHeaderSize> part_header(bool first, bool last,
                                                                              bool text, std::uint8_t lane) {
  return {kPartMark, static_cast<std::uint8_t>((first ? kFirstPart : 0) | (last ? kLastPart : 0) |
                                               (text ? kTextPart : 0) | (lane << kPartLaneShift))};
}

}  // namespace vlk::relay
