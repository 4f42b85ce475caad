// The table of kinds and its documentation.
#include "relay/storage/trail/kinds.h"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "relay/storage/trail/documented.h"

namespace vlk::relay {
namespace {

// Lower-case words with hyphens, one dot between two of them.
bool is_dotted_lower_case(std::string_view code) {
  const std::size_t dot = code.find('.');
  const auto fits = [](char c) { return c == '.' || c == '-' || (c >= 'a' && c <= 'z'); };
  return dot != std::string_view::npos && dot > 0 && dot + 1 < code.size() && dot == code.rfind('.') &&
         std::ranges::all_of(code, fits);
}

TEST(TrailKinds, HaveUniqueCodesInDottedLowerCase) {
  std::set<std::string_view> codes;
  for (const TrailKindRule& rule : kTrailKinds) {
    EXPECT_TRUE(codes.insert(rule.code).second) << rule.code;
    EXPECT_TRUE(is_dotted_lower_case(rule.code)) << rule.code;
    EXPECT_LE(rule.code.size(), 32u) << rule.code << " is too long for a message id of syslog";
    EXPECT_EQ(&rule_of(rule.kind), &rule);
  }
}

TEST(TrailKinds, AreAllDocumentedWithTheirFields) {
  auto documented = documented_kinds();
  for (const TrailKindRule& rule : kTrailKinds) {
    const auto found = documented.find(std::string(rule.code));
    ASSERT_NE(found, documented.end()) << rule.code;
    for (std::string_view rest = rule.fields; !rest.empty();) {
      const std::string name(rest.substr(0, rest.find(' ')));
      rest.remove_prefix(std::min(rest.size(), name.size() + 1));
      EXPECT_NE(found->second.find('`' + name + '`'), std::string::npos) << rule.code << ' ' << name;
    }
    documented.erase(found);
  }
  EXPECT_TRUE(documented.empty()) << documented.begin()->first << " is documented but does not exist";
}

TEST(TrailKinds, NameTheirFieldsInOrder) {
  constexpr auto kNames = field_names<TrailKind::SessionEnded>();
  static_assert(kNames.size() == 2 && kNames[0] == "reason" && kNames[1] == "seconds");
  static_assert(field_names<TrailKind::RelayStopped>().empty());
}

}  // namespace
}  // namespace vlk::relay
