// Encodes and decodes the envelope's ten-byte big-endian header.
#include "wire/messages.h"

#include <algorithm>

#include "wire/big_endian.h"

namespace vlk {

void write_envelope_header(unsigned char* out, std::uint8_t type, std::uint8_t flags,
                           std::uint32_t session_id, std::uint32_t length) {
  out[0] = type;
  out[1] = flags;
  put_u32_be(out + 2, session_id);
  put_u32_be(out + 6, length);
}

std::vector<std::uint8_t> encode_envelope(Msg type, std::uint32_t session_id, const unsigned char* data,
                                          std::size_t length, std::uint8_t flags) {
  std::vector<std::uint8_t> message(length + kEnvelopeHeaderSize);
  write_envelope_header(message.data(), static_cast<std::uint8_t>(type), flags, session_id,
                        static_cast<std::uint32_t>(length));
  std::copy_n(data, length, message.begin() + kEnvelopeHeaderSize);
  return message;
}

bool decode_envelope(const unsigned char* data, std::size_t length, Envelope& envelope) {
  if (length < kEnvelopeHeaderSize) return false;
  const std::uint32_t declared = get_u32_be(data + 6);
  if (declared > kMaxDecodedPayload || length < declared + kEnvelopeHeaderSize) return false;
  envelope.type = data[0];
  envelope.flags = data[1];
  envelope.session_id = get_u32_be(data + 2);
  envelope.payload.assign(data + kEnvelopeHeaderSize, data + kEnvelopeHeaderSize + declared);
  return true;
}

}  // namespace vlk
