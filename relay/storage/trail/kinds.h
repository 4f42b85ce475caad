// The kinds of rows in the audit trail, each with its stable code and the names of its fields.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace vlk::relay {

enum class TrailKind {
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define TRAIL_KIND(name, code, fields) name,
#include "relay/storage/trail/kinds.def"
#undef TRAIL_KIND
};

struct TrailKindRule {
  TrailKind kind;
  std::string_view code;
  std::string_view fields;  // names separated by one space each
};

inline constexpr TrailKindRule kTrailKinds[] = {
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define TRAIL_KIND(name, code, fields) {TrailKind::name, code, fields},
#include "relay/storage/trail/kinds.def"
#undef TRAIL_KIND
};

[[nodiscard]] constexpr const TrailKindRule& rule_of(TrailKind kind) {
  return kTrailKinds[static_cast<std::size_t>(kind)];
}

[[nodiscard]] constexpr std::size_t count_fields(std::string_view fields) {
  std::size_t count = fields.empty() ? 0 : 1;
  for (const char c : fields)
    count += c == ' ' ? 1 : 0;
  return count;
}

// The names of a kind's fields, in order.
template <TrailKind kKind>
[[nodiscard]] constexpr auto field_names() {
  std::array<std::string_view, count_fields(rule_of(kKind).fields)> names{};
  std::string_view rest = rule_of(kKind).fields;
  for (std::string_view& name : names) {
    const std::size_t end = rest.find(' ');
    name = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return names;
}

}  // namespace vlk::relay
