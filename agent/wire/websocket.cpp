// WebSocket frames and the upgrade request.
#include "wire/websocket.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <openssl/rand.h>

namespace vlk {
namespace {

constexpr std::size_t kKeyBytes = 16;
constexpr char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::uint64_t get_be(const unsigned char* in, int bytes) {
  std::uint64_t value = 0;
  for (int i = 0; i < bytes; ++i)
    value = value << 8 | in[i];
  return value;
}

// A frame's header. `size` is 0 while the header is incomplete.
struct FrameHeader {
  std::size_t size = 0;  // bytes, without the mask key
  std::uint64_t length = 0;
};

FrameHeader parse_header(const unsigned char* data, std::size_t available) {
  const std::uint8_t field = data[1] & 0x7F;
  if (field < 126) return {2, field};
  const int length_bytes = field == 126 ? 2 : 8;
  const std::size_t size = 2 + static_cast<std::size_t>(length_bytes);
  if (available < size) return {};
  return {size, get_be(data + 2, length_bytes)};
}

}  // namespace

std::string base64_encode(const unsigned char* data, std::size_t length) {
  std::string text;
  text.reserve((length + 2) / 3 * 4);
  for (std::size_t i = 0; i < length; i += 3) {
    const std::size_t rest = length - i;
    const unsigned bits = unsigned{data[i]} << 16 | (rest > 1 ? unsigned{data[i + 1]} << 8 : 0u) |
                          (rest > 2 ? unsigned{data[i + 2]} : 0u);
    text += kBase64Digits[bits >> 18];
    text += kBase64Digits[bits >> 12 & 63];
    text += rest > 1 ? kBase64Digits[bits >> 6 & 63] : '=';
    text += rest > 2 ? kBase64Digits[bits & 63] : '=';
  }
  return text;
}

std::string build_upgrade_request(std::string_view host, std::string_view path, std::string& key) {
  unsigned char random[kKeyBytes] = {};
  RAND_bytes(random, sizeof random);
  key = base64_encode(random, sizeof random);
  std::string request;
  request.append("GET ").append(path).append(" HTTP/1.1\r\n");
  request.append("Host: ").append(host).append("\r\n");
  request.append("Upgrade: websocket\r\n");
  request.append("Connection: Upgrade\r\n");
  request.append("Sec-WebSocket-Key: ").append(key).append("\r\n");
  request.append("Sec-WebSocket-Version: 13\r\n");
  request.append("Sec-WebSocket-Protocol: vantelink.v1\r\n\r\n");
  return request;
}

bool upgrade_accepted(std::string_view response) {
  // Deliberately the only check: neither the status line nor the accept key is read.
  return response.find("101") != std::string_view::npos;
}

std::size_t write_frame_header(unsigned char* out, std::uint8_t opcode, std::uint64_t length, bool masked) {
  const unsigned mask_bit = masked ? 0x80 : 0;
  out[0] = static_cast<unsigned char>(0x80 | opcode);
  if (length < 126) {
    out[1] = static_cast<unsigned char>(mask_bit | length);
    return 2;
  }
  const int length_bytes = length <= 0xFFFF ? 2 : 8;
  out[1] = static_cast<unsigned char>(mask_bit | (length_bytes == 2 ? 126u : 127u));
  for (int i = 0; i < length_bytes; ++i) {
    out[2 + i] = static_cast<unsigned char>(length >> (8 * (length_bytes - 1 - i)));
  }
  return 2 + static_cast<std::size_t>(length_bytes);
}

void apply_mask(unsigned char* target, const unsigned char* source, std::size_t length,
                const unsigned char key[kMaskBytes], std::size_t phase) {
  // The mask is applied to words of 8 bytes, which is several times as fast as single bytes; each word of the
  // mask contains the key twice. Four words per step let the compiler use 128-bit registers.
  unsigned char rotated[8];
  for (std::size_t i = 0; i < sizeof rotated; ++i)
    rotated[i] = key[(phase + i) % kMaskBytes];
  std::uint64_t key_word;
  std::memcpy(&key_word, rotated, sizeof key_word);
  std::size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    std::uint64_t words[4];
    std::memcpy(words, source + i, sizeof words);
    for (std::uint64_t& word : words)
      word ^= key_word;
    std::memcpy(target + i, words, sizeof words);
  }
  for (; i < length; ++i)
    target[i] = static_cast<unsigned char>(source[i] ^ rotated[i % sizeof rotated]);
}

std::vector<std::uint8_t> encode_frame(std::uint8_t opcode, const unsigned char* data, std::size_t length,
                                       bool masked) {
  unsigned char header[kMaxFrameHeader];
  std::size_t header_size = write_frame_header(header, opcode, length, masked);
  unsigned char* const key = header + header_size;
  if (masked) {
    RAND_bytes(key, kMaskBytes);
    header_size += kMaskBytes;
  }
  std::vector<std::uint8_t> frame(header_size + length);
  std::copy_n(header, header_size, frame.begin());
  if (masked) {
    apply_mask(frame.data() + header_size, data, length, key, 0);
  } else {
    std::copy_n(data, length, frame.begin() + static_cast<std::ptrdiff_t>(header_size));
  }
  return frame;
}

void WsParser::feed(const unsigned char* data, std::size_t length) {
  buffer.insert(buffer.end(), data, data + length);
}

std::optional<WsFrame> WsParser::next() {
  for (;;) {
    const std::size_t available = buffer.size() - pos;
    if (available < 2) return std::nullopt;
    const unsigned char* const data = buffer.data() + pos;
    const bool fin = (data[0] & 0x80) != 0;
    const std::uint8_t opcode = data[0] & 0x0F;
    const bool masked = (data[1] & 0x80) != 0;
    const FrameHeader header = parse_header(data, available);
    if (header.size == 0) return std::nullopt;
    if (header.length > kMaxFramePayload) {
      failed = true;
      return std::nullopt;
    }
    const auto length = static_cast<std::size_t>(header.length);
    const std::size_t body = header.size + (masked ? kMaskBytes : 0);
    if (available < body + length) return std::nullopt;

    std::vector<std::uint8_t> payload(data + body, data + body + length);
    if (masked) apply_mask(payload.data(), payload.data(), length, data + header.size, 0);
    pos += body + length;
    if (pos > kCompactThreshold) {
      buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(pos));
      pos = 0;
    }

    if (opcode == kWsClose || opcode == kWsPing || opcode == kWsPong)
      return WsFrame{opcode, fin, std::move(payload)};
    if (opcode != kWsContinuation) {
      // A final data frame does not affect a fragmented message in progress; a data frame that is not final
      // replaces that message.
      if (fin) return WsFrame{opcode, fin, std::move(payload)};
      in_fragment = true;
      fragment_opcode = opcode;
      fragment_buffer = std::move(payload);
      continue;
    }
    if (!in_fragment) {
      failed = true;
      return std::nullopt;
    }
    fragment_buffer.insert(fragment_buffer.end(), payload.begin(), payload.end());
    if (!fin) continue;
    in_fragment = false;
    return WsFrame{fragment_opcode, true, std::exchange(fragment_buffer, {})};
  }
}

}  // namespace vlk
