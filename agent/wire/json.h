// Flat JSON objects: a writer that appends fields, and a reader that searches the raw text for one field.
// There is no tree, no validation and no error report. The reader must not become stricter or more capable:
// the server relies on its exact behaviour, including the texts that it misreads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlk {

// Writes one object. Fields appear in the order of the calls, without white space; keys are not escaped.
struct JsonWriter {
  std::string text = "{";
  bool first = true;

  // Escapes tab, line feed, carriage return, double quote and backslash; every other byte is copied
  // unchanged.
  JsonWriter& add_string(std::string_view key, std::string_view value);
  // Adds a signed decimal number. The caller converts unsigned 32-bit values to 64 bits, so that they are
  // never negative.
  JsonWriter& add_int(std::string_view key, std::int64_t value);
  JsonWriter& add_bool(std::string_view key, bool value);
  // Adds a field whose value is JSON text, which is copied unchanged.
  JsonWriter& add_raw(std::string_view key, std::string_view value);
  // Returns the object with its closing brace. The writer is unchanged, so more fields may be added
  // afterwards.
  [[nodiscard]] std::string finish() const;

 private:
  void begin_field(std::string_view key);
};

// The value of a field, and whether the field was found.
template <typename T>
struct JsonValue {
  T value{};
  bool found = false;
};

// Position of a field's value in `text`, or std::string_view::npos. Only the first occurrence of the quoted
// key counts, at any depth and even if it is a value. The position may be the end of the text.
[[nodiscard]] std::size_t find_value(std::string_view text, std::string_view key);

// Reads a string value and replaces its escapes. Of a Unicode escape, only the backslash is removed.
[[nodiscard]] JsonValue<std::string> read_string(std::string_view text, std::string_view key);

// Reads an integer: an optional sign and the decimal digits after it. An overflow wraps around.
[[nodiscard]] JsonValue<std::int64_t> read_int(std::string_view text, std::string_view key);

// The value that was found, or the fallback.
[[nodiscard]] std::string value_or(const JsonValue<std::string>& result, std::string_view fallback);
[[nodiscard]] std::int64_t value_or(const JsonValue<std::int64_t>& result, std::int32_t fallback);

}  // namespace vlk
