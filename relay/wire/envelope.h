// Envelopes as the relay handles them: it reads their headers and passes most payloads on unread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/bytes.h"
#include "wire/messages.h"

namespace vlk::relay {

struct EnvelopeHeader {
  Msg type{};
  std::uint32_t session = 0;
};

// The header of an envelope whose declared length equals the length of its payload; nothing otherwise. Unlike
// the agent's decoder, this one has no upper limit: an agent's clipboard may fill one envelope of tens of
// megabytes.
[[nodiscard]] std::optional<EnvelopeHeader> read_header(const Bytes& message);

// Sets the declared length of a whole envelope to the length of its payload.
void set_payload_length(Bytes& message);

// An envelope with a JSON payload. The agent's reader searches the text for keys, so `json` must be a flat
// object without Unicode escapes.
[[nodiscard]] std::shared_ptr<const Bytes> json_envelope(Msg type, std::uint32_t session,
                                                         std::string_view json);

// The JSON object in an agent's payload; null if there is none. The agent writes control characters and
// broken UTF-8 unchanged, and a machine's name may hold both. They become spaces and question marks, so that
// the machine can still log in.
[[nodiscard]] nlohmann::json agent_json(const Bytes& message);

// The text under `key`, cut to 200 bytes at a character boundary; empty if there is no text.
[[nodiscard]] std::string text_field(const nlohmann::json& object, const char* key);

// JSON text without line breaks; broken UTF-8 is replaced.
[[nodiscard]] std::string dump(const nlohmann::json& value);

}  // namespace vlk::relay
