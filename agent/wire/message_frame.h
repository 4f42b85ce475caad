// One message on the wire: an envelope in one masked WebSocket binary frame, written into one buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "wire/messages.h"

namespace vlk {

// A block of bytes whose size does not change. Unlike the bytes of a vector, they are not set to zero first.
struct WireBytes {
  std::unique_ptr<unsigned char[]> data;
  std::size_t size = 0;
};

// Gives the same bytes as encode_frame for the result of encode_envelope, with one allocation and one pass
// over the payload.
[[nodiscard]] WireBytes encode_message_frame(Msg type, std::uint32_t session_id, const unsigned char* data,
                                             std::size_t length, std::uint8_t flags);

}  // namespace vlk
