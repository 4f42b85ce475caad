// Reads and writes envelopes and their JSON payloads.
#include "relay/wire/envelope.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "relay/base/text.h"
#include "wire/big_endian.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kLongestName = 200;  // bytes

// Offsets of the header's fields, in bytes.
constexpr std::size_t kSessionOffset = 2;
constexpr std::size_t kLengthOffset = 6;

}  // namespace

std::optional<EnvelopeStart> read_start(const Bytes& message) {
  if (message.size() < kEnvelopeHeaderSize) return std::nullopt;
  return EnvelopeStart{{static_cast<Msg>(message[0]), get_u32_be(&message[kSessionOffset])},
                       std::uint64_t{kEnvelopeHeaderSize} + get_u32_be(&message[kLengthOffset])};
}

std::optional<EnvelopeHeader> read_header(const Bytes& message) {
  const auto start = read_start(message);
  if (!start || start->size != message.size()) return std::nullopt;
  return start->header;
}

std::optional<std::uint64_t> frame_stamp(const Bytes& message) {
  constexpr std::size_t kStampSize = 8;
  if (message.size() < kEnvelopeHeaderSize + kStampSize) return std::nullopt;
  std::uint64_t stamp = 0;
  for (std::size_t i = kStampSize; i-- > 0;)  // little-endian
    stamp = stamp << 8 | message[kEnvelopeHeaderSize + i];
  return stamp;
}

void set_payload_length(Bytes& message) {
  put_u32_be(&message[kLengthOffset], static_cast<std::uint32_t>(message.size() - kEnvelopeHeaderSize));
}

std::array<std::uint8_t, kEnvelopeHeaderSize> header_for(const Bytes& message, std::uint32_t session) {
  std::array<std::uint8_t, kEnvelopeHeaderSize> header{};
  std::copy_n(message.begin(), header.size(), header.begin());
  put_u32_be(&header[kSessionOffset], session);
  return header;
}

std::shared_ptr<const Bytes> json_envelope(Msg type, std::uint32_t session, std::string_view json) {
  return std::make_shared<const Bytes>(encode_envelope(
      type, session, reinterpret_cast<const unsigned char*>(json.data()), json.size(), kJsonPayload));
}

nlohmann::json agent_json(const Bytes& message) {
  std::string text(message.begin() + kEnvelopeHeaderSize, message.end());
  std::ranges::replace_if(text, is_c0_control, ' ');
  nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
  if (value.is_discarded()) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }, '?');
    value = nlohmann::json::parse(text, nullptr, false);
  }
  return value.is_object() ? value : nlohmann::json();
}

std::string text_field(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return {};
  return std::string(cut_utf8(found->get_ref<const std::string&>(), kLongestName));
}

std::string dump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace vlk::relay
