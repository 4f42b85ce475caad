// The messages between relay and agent: their codes, and the envelope, which is the format of every message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace vlk {

// Message codes, as listed in messages.def.
enum class Msg : std::uint8_t {
#define VLK_MESSAGE(name, code, direction, scope) name = (code),
#include "wire/messages.def"
#undef VLK_MESSAGE
};

enum class Direction { ToAgent, FromAgent, BothWays };

// Who exchanges a message: Link and Consent messages are between relay and agent. Session messages are
// between browser and agent, and the relay passes them on.
enum class Scope { Link, Consent, Session };

struct MessageRule {
  Msg code{};
  Direction direction{};
  Scope scope{};

  [[nodiscard]] constexpr bool to_agent() const { return direction != Direction::FromAgent; }
  [[nodiscard]] constexpr bool from_agent() const { return direction != Direction::ToAgent; }
};

// Every message, in the order of the codes.
inline constexpr MessageRule kMessageRules[] = {
#define VLK_MESSAGE(name, code, direction, scope) {Msg::name, Direction::direction, Scope::scope},
#include "wire/messages.def"
#undef VLK_MESSAGE
};

// The rule of a code; null for a code that is not in the table.
[[nodiscard]] constexpr const MessageRule* find_rule(Msg code) {
  for (const MessageRule& rule : kMessageRules) {
    if (rule.code == code) return &rule;
  }
  return nullptr;
}

// Values of the envelope's flags byte. No decoder depends on this byte.
enum EnvelopeFlags : std::uint8_t {
  kBinaryPayload = 0,
  kJsonPayload = 1,
};

// Bytes of the header before the payload: type u8, flags u8, session_id u32, length u32, big-endian.
inline constexpr std::size_t kEnvelopeHeaderSize = 10;

// Largest payload that decoding accepts, in bytes. Encoding has no limit.
inline constexpr std::uint32_t kMaxDecodedPayload = 0x800000;

// A decoded message. `type` may be a code that is not in Msg; the dispatcher ignores such a message.
struct Envelope {
  std::uint8_t type = 0;
  std::uint8_t flags = 0;
  std::uint32_t session_id = 0;  // 0: the message belongs to no session
  std::vector<std::uint8_t> payload;
};

// Sends one message to the server. The arguments are its type, session, payload, payload size in bytes and
// flags. Blocks until the message is written; false if that failed. Callable on any thread.
using SendCallable = std::function<bool(Msg, unsigned int, const unsigned char*, std::size_t, unsigned char)>;

// Writes the header for a payload of `length` bytes into the kEnvelopeHeaderSize bytes at `out`.
void write_envelope_header(unsigned char* out, std::uint8_t type, std::uint8_t flags,
                           std::uint32_t session_id, std::uint32_t length);

// Builds a message, header and payload, in one array with one allocation.
[[nodiscard]] std::vector<std::uint8_t> encode_envelope(Msg type, std::uint32_t session_id,
                                                        const unsigned char* data, std::size_t length,
                                                        std::uint8_t flags);

// Fills `envelope` from the bytes of one WebSocket message; bytes after the declared payload are ignored.
// False, with `envelope` unchanged, if the header or the payload is incomplete or the payload exceeds
// kMaxDecodedPayload.
[[nodiscard]] bool decode_envelope(const unsigned char* data, std::size_t length, Envelope& envelope);

}  // namespace vlk
