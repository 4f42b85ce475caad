// Reads and builds envelopes. The relay reads each envelope's header and passes most payloads on without
// reading them.
#pragma once

#include <array>
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

// An envelope of which at least the header has arrived.
struct EnvelopeStart {
  EnvelopeHeader header;
  std::uint64_t size = 0;  // bytes of the whole envelope, as its header declares
};

// Reads the header of an envelope that may be incomplete. Returns nothing if the header is incomplete.
[[nodiscard]] std::optional<EnvelopeStart> read_start(const Bytes& message);

// Reads the header of an envelope. Returns nothing if the declared length differs from the length of the
// payload. Unlike the agent's decoder, this function has no upper limit, because an agent's clipboard may be
// an envelope of tens of megabytes.
[[nodiscard]] std::optional<EnvelopeHeader> read_header(const Bytes& message);

// The time stamp of a StreamFrame: microseconds since the stream's start, by the agent's clock. Nothing if
// the message is too short.
[[nodiscard]] std::optional<std::uint64_t> frame_stamp(const Bytes& message);

// Sets the length in the header of an envelope to the actual length of its payload.
void set_payload_length(Bytes& message);

// The header of this envelope with another session's number. `message` has at least a header.
[[nodiscard]] std::array<std::uint8_t, kEnvelopeHeaderSize> header_for(const Bytes& message,
                                                                       std::uint32_t session);

// An envelope with a JSON payload. The agent's reader searches the text for keys, so `json` must be a flat
// object without Unicode escapes.
[[nodiscard]] std::shared_ptr<const Bytes> json_envelope(Msg type, std::uint32_t session,
                                                         std::string_view json);

// The JSON object in an agent's payload; null if the payload is not a JSON object. The agent does not escape
// control characters and does not repair invalid UTF-8, and a machine's name may contain both. Here they
// become spaces and question marks, so that the machine can still log in.
[[nodiscard]] nlohmann::json agent_json(const Bytes& message);

// The text under `key`, shortened to 200 bytes at a character boundary; empty if the object has no such text.
[[nodiscard]] std::string text_field(const nlohmann::json& object, const char* key);

// The value as JSON text without line breaks. Invalid UTF-8 in it is replaced.
[[nodiscard]] std::string dump(const nlohmann::json& value);

}  // namespace vlk::relay
