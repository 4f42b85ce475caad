// One message as it goes over the wire: an envelope inside one masked WebSocket binary frame, formed in one
// buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "wire/messages.h"

namespace vlk {

// Bytes that are written once and never grown, so that forming a large frame does not zero them first.
struct WireBytes {
  std::unique_ptr<unsigned char[]> data;
  std::size_t size = 0;
};

// The same bytes as encode_frame of encode_envelope, with one allocation and one pass over the payload.
WireBytes encode_message_frame(Msg type, std::uint32_t session_id, const unsigned char* data,
                               std::size_t length, std::uint8_t flags);

}  // namespace vlk
