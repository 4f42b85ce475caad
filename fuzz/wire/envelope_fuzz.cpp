// Decodes any bytes as an envelope. Encoding the result must give the same bytes.
#include <algorithm>

#include "require.h"
#include "wire/messages.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::Envelope envelope;
  envelope.session_id = 0xFEEDBEEF;
  if (!vlk::decode_envelope(data, size, envelope)) {
    REQUIRE(envelope.session_id == 0xFEEDBEEF && envelope.payload.empty());
    return 0;
  }
  REQUIRE(envelope.payload.size() <= vlk::kMaxDecodedPayload);
  const auto bytes = vlk::encode_envelope(static_cast<vlk::Msg>(envelope.type), envelope.session_id,
                                          envelope.payload.data(), envelope.payload.size(), envelope.flags);
  REQUIRE(bytes.size() <= size && std::equal(bytes.begin(), bytes.end(), data));
  return 0;
}
