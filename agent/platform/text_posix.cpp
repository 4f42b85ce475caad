// Text conversion for hosts whose wide characters are whole code points.
#include "platform/text.h"

#include <cstdint>

namespace vlk {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLargest = 0x10FFFF;

bool is_surrogate(char32_t point) {
  return point >= 0xD800 && point <= 0xDFFF;
}

// What the first byte of a sequence means: the number of bytes after it, its bits of the code point, and the
// smallest code point that needs this number of bytes.
struct Sequence {
  std::size_t continuations = 0;
  char32_t bits = 0;
  char32_t smallest = 0;
};

Sequence sequence_of(std::uint8_t lead) {
  if (lead < 0x80) return {0, lead, 0};
  if (lead >= 0xC2 && lead <= 0xDF) return {1, lead & 0x1Fu, 0x80};
  if (lead >= 0xE0 && lead <= 0xEF) return {2, lead & 0x0Fu, 0x800};
  if (lead >= 0xF0 && lead <= 0xF4) return {3, lead & 0x07u, 0x10000};
  return {0, kReplacement, 0};
}

// Reads the code point at `position` and moves `position` past its bytes. Gives the replacement character for
// malformed bytes.
char32_t next_point(std::string_view text, std::size_t& position) {
  const Sequence sequence = sequence_of(static_cast<std::uint8_t>(text[position++]));
  char32_t point = sequence.bits;
  for (std::size_t i = 0; i < sequence.continuations; ++i) {
    if (position >= text.size()) return kReplacement;
    const auto byte = static_cast<std::uint8_t>(text[position]);
    if ((byte & 0xC0) != 0x80) return kReplacement;
    point = point << 6 | (byte & 0x3Fu);
    ++position;
  }
  return point < sequence.smallest || point > kLargest || is_surrogate(point) ? kReplacement : point;
}

void append_point(std::string& text, char32_t point) {
  const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
  if (point < 0x80) return add(point);
  if (point < 0x800) {
    add(0xC0 | point >> 6);
  } else if (point < 0x10000) {
    add(0xE0 | point >> 12);
    add(0x80 | (point >> 6 & 0x3F));
  } else {
    add(0xF0 | point >> 18);
    add(0x80 | (point >> 12 & 0x3F));
    add(0x80 | (point >> 6 & 0x3F));
  }
  add(0x80 | (point & 0x3F));
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (std::size_t position = 0; position < text.size();)
    wide += static_cast<wchar_t>(next_point(text, position));
  return wide;
}

std::string WideToUtf8(std::wstring_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (const wchar_t character : text) {
    const auto point = static_cast<char32_t>(character);
    append_point(utf8, point > kLargest || is_surrogate(point) ? kReplacement : point);
  }
  return utf8;
}

}  // namespace vlk
