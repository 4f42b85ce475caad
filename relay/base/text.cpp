// Control characters and UTF-8 boundaries in text from peers.
#include "relay/base/text.h"

#include <algorithm>

namespace vlk::relay {

bool has_control(std::string_view text) {
  return std::ranges::any_of(text, is_control);
}

namespace {

// The size of the sequence at the beginning of the text; 0 if there is no valid one. By table 3-7 of the
// Unicode Standard.
std::size_t sequence_size(std::string_view text) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const auto follows = [&](std::size_t i, unsigned least = 0x80, unsigned most = 0xBF) {
    return byte(i) >= least && byte(i) <= most;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return first == 0 ? 0 : 1;
  if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const unsigned least = first == 0xE0 ? 0xA0 : 0x80;
    const unsigned most = first == 0xED ? 0x9F : 0xBF;
    return follows(1, least, most) && follows(2) ? 3 : 0;
  }
  if (first < 0xF0 || first > 0xF4) return 0;
  const unsigned least = first == 0xF0 ? 0x90 : 0x80;
  const unsigned most = first == 0xF4 ? 0x8F : 0xBF;
  return follows(1, least, most) && follows(2) && follows(3) ? 4 : 0;
}

}  // namespace

bool is_text(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = sequence_size(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

std::string without_controls(std::string text) {
  std::ranges::replace_if(text, is_control, ' ');
  return text;
}

std::string_view cut_utf8(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  // A byte 10xxxxxx is the second or a later byte of a sequence.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  return text.substr(0, end);
}

}  // namespace vlk::relay
