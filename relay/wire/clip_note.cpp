// Reads the names of files from clipboard messages.
#include "relay/wire/clip_note.h"

#include <span>
#include <utility>

#include "relay/base/text.h"
#include "wire/messages.h"

namespace vlk::relay {
namespace {

constexpr std::uint8_t kFiles = 3;  // the first byte of a payload that contains files

}  // namespace

std::optional<std::string> clip_note(const Bytes& envelope) {
  if (envelope.size() <= kEnvelopeHeaderSize || envelope[kEnvelopeHeaderSize] != kFiles) return std::nullopt;
  ByteReader reader{std::span(envelope).subspan(kEnvelopeHeaderSize + 1)};
  std::string names;
  std::size_t files = 0;
  for (std::uint32_t left = reader.u32().value_or(0); left > 0; --left) {
    const auto name = reader.take(reader.u32().value_or(UINT32_MAX));
    const auto size = reader.u64();
    if (!name || !size || !reader.take(*size)) break;
    ++files;
    if (names.size() + name->size() > kLongestClipNote) continue;
    names += files == 1 ? " " : ", ";
    names += *name;
  }
  return std::to_string(files) + without_controls(std::move(names));
}

}  // namespace vlk::relay
