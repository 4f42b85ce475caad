// Envelopes as the relay handles them: it looks at the header and hardly ever at the payload.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "wire/messages.h"

namespace vlk::relay {

using Bytes = std::vector<std::uint8_t>;

struct EnvelopeHeader {
  Msg type{};
  std::uint32_t session = 0;
};

// The header of an envelope whose declared length is exactly what follows; nothing otherwise. Unlike the
// agent's own decoding it knows no largest payload: an agent's clipboard may come in one envelope of tens of
// megabytes.
std::optional<EnvelopeHeader> read_header(const Bytes& message);

// Makes the header of a whole envelope fit the bytes behind it.
void set_payload_length(Bytes& message);

// An envelope with a JSON payload. The agent's reader is primitive: `json` is to be flat, without Unicode
// escapes.
std::shared_ptr<const Bytes> json_envelope(Msg type, std::uint32_t session, std::string_view json);

// Types that a browser may send within a session, and those that an agent sends to one.
bool flows_to_agent(Msg type);
bool flows_to_browser(Msg type);

// The JSON object in an agent's payload; null if there is none. The agent writes control characters and
// broken UTF-8 as they are, which a name may hold; they become blanks and question marks, so that its machine
// can still log in.
nlohmann::json agent_json(const Bytes& message);

// The text under `key`, cut to 200 bytes at a character's border; empty when missing or no text.
std::string text_field(const nlohmann::json& object, const char* key);

// JSON text without line breaks; broken UTF-8 is replaced.
std::string dump(const nlohmann::json& value);

}  // namespace vlk::relay
