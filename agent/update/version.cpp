// Compares two version texts field by field.
#include "update/version.h"

#include <cstdint>

namespace vlk::agent {
namespace {

// The number at the start of the text; 0 if the text does not start with a digit.
std::int32_t leading_number(std::string_view text) {
  std::uint32_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
  }
  return static_cast<std::int32_t>(value);
}

// The text after the next dot; empty if there is no dot.
std::string_view after_dot(std::string_view text) {
  const std::size_t dot = text.find('.');
  return dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
}

}  // namespace

bool is_newer(std::string_view current, std::string_view offered) {
  while (!current.empty() || !offered.empty()) {
    const std::int32_t own = leading_number(current);
    const std::int32_t other = leading_number(offered);
    if (own != other) return own < other;
    current = after_dot(current);
    offered = after_dot(offered);
  }
  return false;
}

}  // namespace vlk::agent
