// Small flat JSON objects: a writer that appends fields, and a reader that searches the raw text for one
// field. There is no tree, no validation and no error report; what the reader misreads is fixed behaviour
// that the server relies on, so it is not to be made stricter or more capable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlk {

// Builds one object. Fields appear in the order of the calls, without white space; keys are never escaped.
struct JsonWriter {
  std::string text = "{";
  bool first = true;

  // Escapes tab, line feed, carriage return, double quote and backslash; every other byte is copied as it is.
  JsonWriter& add_string(std::string_view key, std::string_view value);
  // A signed decimal. A 32-bit unsigned quantity is widened by the caller and so never prints negative.
  JsonWriter& add_int(std::string_view key, std::int64_t value);
  JsonWriter& add_bool(std::string_view key, bool value);
  // `value` is JSON already, formed by the caller.
  JsonWriter& add_raw(std::string_view key, std::string_view value);
  // The text with its closing brace. The writer is unchanged, so more fields may follow.
  std::string finish() const;

 private:
  void begin_field(std::string_view key);
};

// The result of a read: a value and whether the field was found.
template <typename T>
struct JsonValue {
  T value{};
  bool found = false;
};

// Position of a field's value in `text`, or std::string_view::npos. The first occurrence of the quoted key
// decides, at any depth and even where it stands as a value. The position may be the text's end.
std::size_t find_value(std::string_view text, std::string_view key);

// A string value, unescaped but for Unicode escapes, which stay as their letters.
JsonValue<std::string> read_string(std::string_view text, std::string_view key);

// The leading decimal digits of a number, with wrap-around on overflow.
JsonValue<std::int64_t> read_int(std::string_view text, std::string_view key);

std::string value_or(const JsonValue<std::string>& result, std::string_view fallback);
std::int64_t value_or(const JsonValue<std::int64_t>& result, std::int32_t fallback);

}  // namespace vlk
