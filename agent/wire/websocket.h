// The client side of the WebSocket protocol (RFC 6455): the upgrade request, frames out, frames in. It knows
// neither sockets nor TLS. It checks less than the RFC asks, on purpose: servers in the field rely on what is
// let through.
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

inline constexpr std::uint64_t kMaxFramePayload = 0x1000000;  // bytes of one incoming frame
inline constexpr std::size_t kCompactThreshold = 0x10000;     // bytes of consumed prefix kept before a move
inline constexpr std::size_t kMaskBytes = 4;
inline constexpr std::size_t kMaxFrameHeader = 10 + kMaskBytes;  // bytes: two, and eight of length

// RFC 4648 standard alphabet with padding, no line breaks.
std::string base64_encode(const unsigned char* data, std::size_t length);

// The upgrade request for `path` on `host`, without a port in its Host line; `key` receives the random key
// sent.
std::string build_upgrade_request(std::string_view host, std::string_view path, std::string& key);

// True when the gathered response text counts as a successful upgrade: the digits 101 occur anywhere in it.
bool upgrade_accepted(std::string_view response);

// One final frame. Masked frames carry four fresh random bytes.
std::vector<std::uint8_t> encode_frame(std::uint8_t opcode, const unsigned char* data, std::size_t length,
                                       bool masked);

// Writes a final frame's header to `out`, which has room for kMaxFrameHeader bytes, without the mask key
// itself; returns the bytes written.
std::size_t write_frame_header(unsigned char* out, std::uint8_t opcode, std::uint64_t length, bool masked);

// Writes `length` bytes of `source` to `target`, exclusive-or'ed with `key`. `phase` is the
// position of the first byte within the masked payload. The ranges may be the same, but not otherwise
// overlap.
void apply_mask(unsigned char* target, const unsigned char* source, std::size_t length,
                const unsigned char key[kMaskBytes], std::size_t phase);

struct WsFrame {
  std::uint8_t opcode = 0;
  bool fin = false;
  std::vector<std::uint8_t> payload;
};

// Takes frames out of a stream of bytes. One per connection, used by one thread.
struct WsParser {
  std::vector<std::uint8_t> buffer;  // bytes received and not yet dropped
  std::size_t pos = 0;               // first unconsumed byte of `buffer`
  bool failed = false;               // a protocol violation: the connection must be dropped
  bool in_fragment = false;
  std::uint8_t fragment_opcode = kWsBinary;
  std::vector<std::uint8_t> fragment_buffer;

  // Appends to `buffer`; never parses.
  void feed(const unsigned char* data, std::size_t length);

  // The next complete message or control frame, or nothing: more bytes are needed, or `failed` is set.
  std::optional<WsFrame> next();
};

}  // namespace vlk
