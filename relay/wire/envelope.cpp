// Envelopes as the relay handles them.
#include "relay/wire/envelope.h"

#include <nlohmann/json.hpp>

namespace vlk::relay {
namespace {

constexpr std::size_t kLongestName = 200;  // bytes

std::uint32_t big_endian(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 |
         bytes[3];
}

}  // namespace

std::optional<EnvelopeHeader> read_header(const Bytes& message) {
  if (message.size() < kEnvelopeHeaderSize) return std::nullopt;
  if (big_endian(&message[6]) != message.size() - kEnvelopeHeaderSize) return std::nullopt;
  return EnvelopeHeader{static_cast<Msg>(message[0]), big_endian(&message[2])};
}

void set_payload_length(Bytes& message) {
  const auto length = static_cast<std::uint32_t>(message.size() - kEnvelopeHeaderSize);
  for (std::size_t i = 0; i < 4; ++i)
    message[6 + i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
}

std::shared_ptr<const Bytes> json_envelope(Msg type, std::uint32_t session, std::string_view json) {
  return std::make_shared<const Bytes>(encode_envelope(
      type, session, reinterpret_cast<const unsigned char*>(json.data()), json.size(), kJsonPayload));
}

bool flows_to_agent(Msg type) {
  const MessageRule* rule = find_rule(type);
  return rule && rule->scope == Scope::Session && rule->to_agent();
}

bool flows_to_browser(Msg type) {
  const MessageRule* rule = find_rule(type);
  return rule && rule->scope == Scope::Session && rule->from_agent();
}

nlohmann::json agent_json(const Bytes& message) {
  std::string text(message.begin() + kEnvelopeHeaderSize, message.end());
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
  if (value.is_discarded()) {
    for (char& c : text) {
      if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    }
    value = nlohmann::json::parse(text, nullptr, false);
  }
  return value.is_object() ? value : nlohmann::json();
}

std::string text_field(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return {};
  std::string text = found->get<std::string>();
  if (text.size() > kLongestName) {
    std::size_t end = kLongestName;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
      --end;
    text.resize(end);
  }
  return text;
}

std::string dump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace vlk::relay
