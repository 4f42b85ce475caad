// A row of the audit trail, before and after it is written.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/storage/trail/kinds.h"

namespace vlk::relay {

// Who did something, to which machine, from where, and in which session. What does not apply is empty.
struct TrailSubject {
  std::string actor{};  // a person's name; kTrailRelay or kTrailCommandLine for the program itself
  std::string machine{};
  std::string address{};
  std::optional<std::int64_t> session{};
};

// The actors that are not people. People's names do not begin with a parenthesis.
inline constexpr char kTrailRelay[] = "(relay)";
inline constexpr char kTrailCommandLine[] = "(command line)";

// A row that is to be written. Made by trail_entry().
struct TrailEntry {
  std::int64_t time_ms = 0;  // since 1970
  std::string code;
  TrailSubject subject;
  std::string fields;  // a flat JSON object with texts, whole numbers, Booleans and lists of texts
};

// A row that was written.
struct TrailRow {
  std::int64_t id = 0;
  TrailEntry entry;
  Bytes hash;  // row_hash() of the row and the hash of the row before it
};

// The value of a field; nothing leaves the field out.
using TrailValue = std::variant<std::monostate, std::string, std::int64_t, bool, std::vector<std::string>>;

// The current time, in ms since 1970.
[[nodiscard]] std::int64_t trail_now();

[[nodiscard]] TrailEntry make_trail_entry(std::string_view code, TrailSubject subject,
                                          std::span<const std::string_view> names,
                                          std::span<const TrailValue> values);

namespace trail_detail {

inline TrailValue value_of(std::nullopt_t) {
  return {};
}
inline TrailValue value_of(bool value) {
  return value;
}
inline TrailValue value_of(std::string value) {
  return value;
}
inline TrailValue value_of(std::string_view value) {
  return std::string(value);
}
inline TrailValue value_of(const char* value) {
  return std::string(value);
}
inline TrailValue value_of(std::vector<std::string> value) {
  return value;
}
template <std::integral Number>
TrailValue value_of(Number value) {
  return static_cast<std::int64_t>(value);
}
template <class Value>
TrailValue value_of(const std::optional<Value>& value) {
  return value ? value_of(*value) : TrailValue();
}

}  // namespace trail_detail

// A row of this kind at the current time. The values are those of the kind's fields, in the order of
// kinds.def.
template <TrailKind kKind, class... Values>
[[nodiscard]] TrailEntry trail_entry(TrailSubject subject, Values&&... values) {
  static constexpr auto kNames = field_names<kKind>();
  static_assert(sizeof...(Values) == kNames.size(), "each field of the kind needs a value");
  const std::array<TrailValue, sizeof...(Values)> list{
      trail_detail::value_of(std::forward<Values>(values))...};
  return make_trail_entry(rule_of(kKind).code, std::move(subject), kNames, list);
}

// The longest text in a field, in bytes; longer ones are shortened and end in "...".
inline constexpr std::size_t kLongestTrailText = 4096;

// The time as in "2026-11-22T06:30:00.123Z", and back. An invalid text gives nothing.
[[nodiscard]] std::string iso_time(std::int64_t time_ms);
[[nodiscard]] std::optional<std::int64_t> parse_iso_time(std::string_view text);

}  // namespace vlk::relay
