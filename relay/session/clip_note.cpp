// Reading the names of a clipboard's files.
#include "relay/session/clip_note.h"

namespace vlk::relay {
namespace {

constexpr std::uint8_t kFiles = 3;  // the kind, the payload's first byte

// Takes big-endian numbers and runs of bytes from the front; after the end everything is nothing.
class Reader {
 public:
  Reader(const Bytes& bytes, std::size_t at) : bytes_(bytes), at_(at) {}

  std::optional<std::uint64_t> number(std::size_t size) {
    const auto run = take(size);
    if (!run) return std::nullopt;
    std::uint64_t value = 0;
    for (const char byte : *run)
      value = value << 8 | static_cast<std::uint8_t>(byte);
    return value;
  }
  std::optional<std::string_view> take(std::uint64_t size) {
    if (size > bytes_.size() - at_) return std::nullopt;
    const std::string_view run(reinterpret_cast<const char*>(bytes_.data()) + at_,
                               static_cast<std::size_t>(size));
    at_ += run.size();
    return run;
  }

 private:
  const Bytes& bytes_;
  std::size_t at_;
};

}  // namespace

std::optional<std::string> clip_note(const Bytes& envelope) {
  if (envelope.size() <= kEnvelopeHeaderSize || envelope[kEnvelopeHeaderSize] != kFiles) return std::nullopt;
  Reader reader(envelope, kEnvelopeHeaderSize + 1);
  std::string names;
  std::size_t files = 0;
  for (std::uint64_t left = reader.number(4).value_or(0); left > 0; --left) {
    const auto name = reader.take(reader.number(4).value_or(UINT64_MAX));
    const auto size = reader.number(8);
    if (!name || !size || !reader.take(*size)) break;
    ++files;
    if (names.size() + name->size() > kLongestClipNote) continue;
    names += files == 1 ? " " : ", ";
    names += *name;
  }
  for (char& c : names) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return std::to_string(files) + names;
}

}  // namespace vlk::relay
