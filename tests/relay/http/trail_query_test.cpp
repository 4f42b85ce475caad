// The query of a request for the trail, as browsers and strangers send it.
#include <string>

#include <gtest/gtest.h>

#include "relay/http/trail_routes.h"

namespace vlk::relay {
namespace {

TEST(TrailQuery, ReadsEachValue) {
  const TrailQuery query = read_trail_query(
      "/api/"
      "trail?person=bj%C3%B6rn+j&machine=m1&kind=login.failed&from=5&to=9&text=%22a%26b%22&before=7&limit="
      "50");
  EXPECT_EQ(query.fault, "");
  EXPECT_EQ(query.filter.person, "björn j");
  EXPECT_EQ(query.filter.machine, "m1");
  EXPECT_EQ(query.filter.kind, "login.failed");
  EXPECT_EQ(query.filter.from_ms, 5);
  EXPECT_EQ(query.filter.to_ms, 9);
  EXPECT_EQ(query.filter.text, "\"a&b\"");
  EXPECT_EQ(query.before, 7);
  EXPECT_EQ(query.limit, 50u);
}

TEST(TrailQuery, HasNoFilterWithoutValues) {
  for (const char* target : {"/api/trail", "/api/trail?", "/api/trail?person=&text=&&=&x=y"}) {
    const TrailQuery query = read_trail_query(target);
    EXPECT_EQ(query.fault, "") << target;
    EXPECT_TRUE(query.filter.empty()) << target;
    EXPECT_EQ(query.limit, 100u);
  }
}

TEST(TrailQuery, RefusesWrongValues) {
  for (const std::string value :
       {"from=x", "from=-1", "to=1e9", "limit=0", "limit=501", "before=99999999999999999999", "person=%",
        "person=%4", "person=%zz", "text=ab", "text=a%00bc", "from=5%00"}) {
    EXPECT_NE(read_trail_query("/api/trail?" + value).fault, "") << value;
  }
  EXPECT_NE(read_trail_query("/api/trail?person=" + std::string(5000, 'a')).fault, "");
}

}  // namespace
}  // namespace vlk::relay
