// Reads the kind of clipboard messages, and the names of files.
#include "relay/wire/clip_note.h"

#include <span>
#include <utility>

#include "relay/base/text.h"
#include "wire/messages.h"

namespace vlk::relay {
namespace {

// The first byte of a payload.
constexpr std::uint8_t kText = 1;
constexpr std::uint8_t kPicture = 2;
constexpr std::uint8_t kFiles = 3;

const char* kind_name(std::uint8_t kind) {
  if (kind == kText) return "text";
  if (kind == kPicture) return "picture";
  return kind == kFiles ? "files" : "other";
}

}  // namespace

std::optional<ClipNote> clip_note(const Bytes& envelope) {
  if (envelope.size() <= kEnvelopeHeaderSize) return std::nullopt;
  ByteReader reader{std::span(envelope).subspan(kEnvelopeHeaderSize + 1)};
  const std::uint8_t kind = envelope[kEnvelopeHeaderSize];
  ClipNote note{kind_name(kind), envelope.size() - kEnvelopeHeaderSize, 0, {}};
  if (kind != kFiles) return note;
  std::size_t bytes = 0;
  for (std::uint32_t left = reader.u32().value_or(0); left > 0; --left) {
    const auto name = reader.take(reader.u32().value_or(UINT32_MAX));
    const auto size = reader.u64();
    if (!name || !size || !reader.take(*size)) break;
    ++note.files;
    bytes += name->size() + 1;
    if (bytes > kLongestClipNote) continue;
    note.names.push_back(without_controls(std::string(*name)));
  }
  return note;
}

}  // namespace vlk::relay
