// The client side of the WebSocket protocol (RFC 6455): the upgrade request, outgoing frames and incoming
// frames, without sockets and TLS. It deliberately checks less than the RFC demands: existing servers rely on
// this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlk {

// Opcodes of RFC 6455, section 5.2.
inline constexpr std::uint8_t kWsContinuation = 0;
inline constexpr std::uint8_t kWsText = 1;
inline constexpr std::uint8_t kWsBinary = 2;
inline constexpr std::uint8_t kWsClose = 8;
inline constexpr std::uint8_t kWsPing = 9;
inline constexpr std::uint8_t kWsPong = 10;

inline constexpr std::uint64_t kMaxFramePayload = 0x1000000;  // bytes; limit of an incoming frame's payload
inline constexpr std::size_t kCompactThreshold = 0x10000;     // consumed bytes are erased above this number
inline constexpr std::size_t kMaskBytes = 4;
inline constexpr std::size_t kMaxFrameHeader = 10 + kMaskBytes;  // 2 fixed bytes, length, mask key

// Base64 with the standard alphabet of RFC 4648 and padding, without line breaks.
[[nodiscard]] std::string base64_encode(const unsigned char* data, std::size_t length);

// The upgrade request for `path` on `host`. Its Host line has no port. `key` receives the random key in the
// request.
[[nodiscard]] std::string build_upgrade_request(std::string_view host, std::string_view path,
                                                std::string& key);

// Whether the response counts as a successful upgrade: the digits 101 occur anywhere in it.
[[nodiscard]] bool upgrade_accepted(std::string_view response);

// Builds one final frame. A masked frame gets a new random key.
[[nodiscard]] std::vector<std::uint8_t> encode_frame(std::uint8_t opcode, const unsigned char* data,
                                                     std::size_t length, bool masked);

// Writes the header of a final frame, without the mask key, to `out`, which must have room for
// kMaxFrameHeader bytes. Returns the number of bytes written.
[[nodiscard]] std::size_t write_frame_header(unsigned char* out, std::uint8_t opcode, std::uint64_t length,
                                             bool masked);

// Writes `length` bytes of `source`, combined with `key` by exclusive or, to `target`. `phase` is the
// position of the first byte within the masked payload. The ranges may be equal, but must not overlap
// otherwise.
void apply_mask(unsigned char* target, const unsigned char* source, std::size_t length,
                const unsigned char key[kMaskBytes], std::size_t phase);

struct WsFrame {
  std::uint8_t opcode = 0;
  bool fin = false;
  std::vector<std::uint8_t> payload;
};

// Extracts frames from a stream of bytes. Each connection has its own parser, which only one thread uses.
struct WsParser {
  std::vector<std::uint8_t> buffer;  // received bytes that are not yet erased
  std::size_t pos = 0;               // first unconsumed byte of `buffer`
  bool failed = false;               // a protocol violation: the connection must end
  bool in_fragment = false;
  std::uint8_t fragment_opcode = kWsBinary;
  std::vector<std::uint8_t> fragment_buffer;

  // Appends to `buffer` without parsing.
  void feed(const unsigned char* data, std::size_t length);

  // The next complete message or control frame. No value if more bytes are needed or `failed` is set.
  [[nodiscard]] std::optional<WsFrame> next();
};

}  // namespace vlk
