// Control characters and UTF-8 boundaries in text from peers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vlk::relay {

// True for bytes below 0x20, which a JSON string must not contain unescaped.
[[nodiscard]] constexpr bool is_c0_control(char c) {
  return static_cast<unsigned char>(c) < 0x20;
}

// True for bytes below 0x20 and for DEL.
[[nodiscard]] constexpr bool is_control(char c) {
  return is_c0_control(c) || c == 0x7F;
}

[[nodiscard]] bool has_control(std::string_view text);

// True for valid UTF-8 without a null character: what a PostgreSQL server stores.
[[nodiscard]] bool is_text(std::string_view text);

// Returns `text` with a space in place of each control character.
[[nodiscard]] std::string without_controls(std::string text);

// Returns `text` shortened to at most `limit` bytes, never in the middle of a UTF-8 sequence.
[[nodiscard]] std::string_view cut_utf8(std::string_view text, std::size_t limit);

}  // namespace vlk::relay
