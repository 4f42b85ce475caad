// Control characters and UTF-8 boundaries in text from peers.
#include "relay/base/text.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace vlk::relay {

bool has_control(std::string_view text) {
  return std::ranges::any_of(text, is_control);
}

bool is_text(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return false;
  try {
    (void)nlohmann::json(text).dump();  // throws for a text that is not valid UTF-8
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
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
