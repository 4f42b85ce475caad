// The text in which a relay reports to the others which machines came and left.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "relay/storage/cluster/relay_store.h"

namespace vlk::relay {
namespace {

using Ids = std::vector<std::string>;

TEST(PresenceNewsTest, EachMachineIsReadByItsSign) {
  const auto news = read_presence_news("12 -a +bc !d +e");
  ASSERT_TRUE(news);
  EXPECT_EQ(news->relay, 12);
  EXPECT_EQ(news->came, (Ids{"bc", "e"}));
  EXPECT_EQ(news->gone, Ids{"a"});
  EXPECT_EQ(news->cut, Ids{"d"});
}

TEST(PresenceNewsTest, RelayAloneReportsNothing) {
  const auto news = read_presence_news("7");
  ASSERT_TRUE(news);
  EXPECT_EQ(news->relay, 7);
  EXPECT_TRUE(news->came.empty() && news->gone.empty() && news->cut.empty());
}

TEST(PresenceNewsTest, OtherTextsAreRefused) {
  for (const char* text : {"", "a", " 1", "99999999999999999999 +a", "1+a", "1 ", "1 +", "1 a", "1 ?a",
                           "1 +a ", "1 +a  +b", "1 +a -"})
    EXPECT_FALSE(read_presence_news(text)) << text;
}

}  // namespace
}  // namespace vlk::relay
