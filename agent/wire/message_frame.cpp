// Writes envelope and frame into one buffer.
#include "wire/message_frame.h"

#include <cstring>

#include <openssl/rand.h>

#include "wire/websocket.h"

namespace vlk {

WireBytes encode_message_frame(Msg type, std::uint32_t session_id, const unsigned char* data,
                               std::size_t length, std::uint8_t flags) {
  unsigned char frame_header[kMaxFrameHeader];
  const std::size_t header_size =
      write_frame_header(frame_header, kWsBinary, length + kEnvelopeHeaderSize, true);
  unsigned char* const key = frame_header + header_size;
  RAND_bytes(key, kMaskBytes);
  const std::size_t prefix = header_size + kMaskBytes;

  WireBytes frame;
  frame.size = prefix + kEnvelopeHeaderSize + length;
  frame.data = std::make_unique_for_overwrite<unsigned char[]>(frame.size);
  std::memcpy(frame.data.get(), frame_header, prefix);
  unsigned char* const envelope = frame.data.get() + prefix;
  write_envelope_header(envelope, static_cast<std::uint8_t>(type), flags, session_id,
                        static_cast<std::uint32_t>(length));
  apply_mask(envelope, envelope, kEnvelopeHeaderSize, key, 0);
  apply_mask(envelope + kEnvelopeHeaderSize, data, length, key, kEnvelopeHeaderSize);
  return frame;
}

}  // namespace vlk
