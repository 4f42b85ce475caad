// Writes JSON objects and reads single fields by a search in the text.
#include "wire/json.h"

namespace vlk {
namespace {

void append_escaped(std::string& text, std::string_view value) {
  for (const char byte : value) {
    switch (byte) {
      case '\t':
        text += "\\t";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      case '"':
        text += "\\\"";
        break;
      case '\\':
        text += "\\\\";
        break;
      default:
        text += byte;
    }
  }
}

// Line feeds and carriage returns deliberately are not skipped: the server never writes them between tokens.
std::size_t skip_blanks(std::string_view text, std::size_t position) {
  while (position < text.size() && (text[position] == ' ' || text[position] == '\t'))
    ++position;
  return position;
}

bool is_digit(char byte) {
  return byte >= '0' && byte <= '9';
}

char unescape(char letter) {
  switch (letter) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return letter;
  }
}

}  // namespace

void JsonWriter::begin_field(std::string_view key) {
  if (!first) text += ',';
  first = false;
  text += '"';
  text += key;
  text += "\":";
}

JsonWriter& JsonWriter::add_string(std::string_view key, std::string_view value) {
  begin_field(key);
  text += '"';
  append_escaped(text, value);
  text += '"';
  return *this;
}

JsonWriter& JsonWriter::add_int(std::string_view key, std::int64_t value) {
  begin_field(key);
  text += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::add_bool(std::string_view key, bool value) {
  begin_field(key);
  text += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::add_raw(std::string_view key, std::string_view value) {
  begin_field(key);
  text += value;
  return *this;
}

std::string JsonWriter::finish() const {
  return text + '}';
}

std::size_t find_value(std::string_view text, std::string_view key) {
  std::string needle;
  needle.reserve(key.size() + 2);
  needle += '"';
  needle += key;
  needle += '"';
  const std::size_t found = text.find(needle);
  if (found == std::string_view::npos) return found;
  const std::size_t colon = skip_blanks(text, found + needle.size());
  // Only the first occurrence counts. If it is not a key, the field is not found.
  if (colon >= text.size() || text[colon] != ':') return std::string_view::npos;
  return skip_blanks(text, colon + 1);
}

JsonValue<std::string> read_string(std::string_view text, std::string_view key) {
  const std::size_t start = find_value(text, key);
  if (start >= text.size() || text[start] != '"') return {};
  std::string value;
  for (std::size_t i = start + 1; i < text.size(); ++i) {
    if (text[i] == '"') return {std::move(value), true};
    if (text[i] == '\\' && i + 1 < text.size()) {
      value += unescape(text[++i]);
    } else {
      value += text[i];
    }
  }
  return {};
}

JsonValue<std::int64_t> read_int(std::string_view text, std::string_view key) {
  std::size_t i = find_value(text, key);
  if (i >= text.size()) return {};
  const bool negative = text[i] == '-';
  if (negative || text[i] == '+') ++i;
  if (i >= text.size() || !is_digit(text[i])) return {};
  std::uint64_t value = 0;  // unsigned, so that an overflow wraps around
  for (; i < text.size() && is_digit(text[i]); ++i) {
    value = value * 10 + static_cast<std::uint64_t>(text[i] - '0');
  }
  return {static_cast<std::int64_t>(negative ? 0 - value : value), true};
}

std::string value_or(const JsonValue<std::string>& result, std::string_view fallback) {
  return result.found ? result.value : std::string(fallback);
}

std::int64_t value_or(const JsonValue<std::int64_t>& result, std::int32_t fallback) {
  return result.found ? result.value : fallback;
}

}  // namespace vlk
