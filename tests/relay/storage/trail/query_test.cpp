// Searches of the trail: each filter, pages, times after a clock was set back, and hostile texts.
#include "relay/storage/trail/query.h"

#include <string>
#include <vector>

#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

class QueryTest : public TrailTest {
 protected:
  void add(const char* person, const char* machine, std::int64_t time, const std::string& path) {
    TrailEntry entry = trail_entry<TrailKind::FolderListed>({person, machine, "192.0.2.7:1", 3}, path, 1);
    entry.time_ms = time;
    append({entry});
  }

  std::vector<std::int64_t> ids(const TrailFilter& filter, std::int64_t before = 0, std::size_t limit = 100) {
    std::vector<std::int64_t> result;
    page = find_rows(*database, filter, before, limit);
    for (const TrailRow& row : page.rows)
      result.push_back(row.id);
    return result;
  }

  TrailPage page;
};

using Ids = std::vector<std::int64_t>;

TEST_F(QueryTest, EachFilterReducesTheRows) {
  add("anna", "m1", 100'000, "C:\\Skjöl\\Árið");
  add("björn", "m1", 200'000, "C:\\Users");
  add("anna", "m2", 300'000, "C:\\Users\\anna");
  append({trail_entry<TrailKind::LoginFailed>({.actor = "anna"}, "password")});
  EXPECT_EQ(ids({}), (Ids{4, 3, 2, 1}));
  EXPECT_EQ(ids({.person = "anna"}), (Ids{4, 3, 1}));
  EXPECT_EQ(ids({.machine = "m1"}), (Ids{2, 1}));
  EXPECT_EQ(ids({.kind = "folder.listed"}), (Ids{3, 2, 1}));
  EXPECT_EQ(ids({.from_ms = 200'000}), (Ids{4, 3, 2}));
  EXPECT_EQ(ids({.to_ms = 200'000}), (Ids{2, 1}));
  EXPECT_EQ(ids({.from_ms = 100'001, .to_ms = 299'999}), (Ids{2}));
  EXPECT_EQ(ids({.text = "c:\\users"}), (Ids{3, 2}));
  EXPECT_EQ(ids({.text = "ÁRIÐ"}), (Ids{1}));
  EXPECT_EQ(ids({.text = "192.0.2"}), (Ids{3, 2, 1}));
  EXPECT_EQ(ids({.person = "anna", .machine = "m2", .kind = "folder.listed", .from_ms = 1, .text = "Users"}),
            (Ids{3}));
  EXPECT_EQ(ids({.person = "anna", .machine = "m1", .text = "Users"}), (Ids{}));
}

TEST_F(QueryTest, PagesFollowOneAnotherWithoutGapOrRepetition) {
  for (int i = 1; i <= 25; ++i)
    add(i % 3 ? "anna" : "björn", "m", i * 1000, "path " + std::to_string(i));
  Ids all;
  std::int64_t before = 0;
  do {
    for (const std::int64_t id : ids({.person = "anna"}, before, 4))
      all.push_back(id);
    before = page.next;
  } while (before != 0);
  Ids expected;
  for (int i = 25; i >= 1; --i) {
    if (i % 3) expected.push_back(i);
  }
  EXPECT_EQ(all, expected);
}

TEST_F(QueryTest, SearchThatIsOutOfTimeSaysWhereItStopped) {
  append(std::vector(12'000, trail_entry<TrailKind::FolderListed>({.actor = "anna"}, "somewhere", 1)));
  const TrailPage stopped = find_rows(*database, {.text = "nowhere"}, 0, 10, std::chrono::milliseconds(0));
  EXPECT_TRUE(stopped.rows.empty());
  EXPECT_EQ(stopped.next, 2001);
  EXPECT_EQ(find_rows(*database, {.text = "nowhere"}, stopped.next, 10).next, 0);
}

TEST_F(QueryTest, FindsTimesBeforeAndAfterTheClockWasSetBack) {
  for (const std::int64_t time : {100'000, 200'000, 300'000, 150'000, 250'000, 120'000})
    add("anna", "m", time, "p");
  EXPECT_EQ(ids({.from_ms = 140'000, .to_ms = 250'000}), (Ids{5, 4, 2}));
  EXPECT_EQ(ids({.from_ms = 110'000, .to_ms = 130'000}), (Ids{6}));
  EXPECT_EQ(ids({.from_ms = 300'001}), (Ids{}));
  EXPECT_EQ(ids({.from_ms = 250'000, .to_ms = 150'000}), (Ids{}));
}

TEST_F(QueryTest, TextsHaveNoMeaningOtherThanThemselves) {
  const std::vector<std::string> hostile = {"\" OR \"a",
                                            "abc* OR def",
                                            "text : abc",
                                            "NEAR(abc def)",
                                            "^abc",
                                            "abc AND def",
                                            "'; DROP TABLE trail; --",
                                            "\"\"\"",
                                            "%%%",
                                            "___",
                                            "{abc}",
                                            "(((",
                                            "-abc",
                                            "\\\\\\",
                                            "\xF0\x9F\x98\x80\xF0\x9F\x98\x80\xF0\x9F\x98\x80"};
  for (const std::string& text : hostile)
    add("anna", "m", 1000, "<" + text + ">");
  add("anna", "m", 1000, "abc def something else");
  for (std::size_t i = 0; i < hostile.size(); ++i) {
    const TrailFilter filter{.text = hostile[i]};
    EXPECT_EQ(filter_fault(filter), "");
    EXPECT_EQ(ids(filter), (Ids{static_cast<std::int64_t>(i) + 1})) << hostile[i];
    EXPECT_EQ(ids({.person = hostile[i], .machine = hostile[i], .kind = hostile[i]}), Ids{});
  }
}

TEST_F(QueryTest, RefusesTextsThatCannotBeSearched) {
  for (const std::string& text :
       {std::string("ab"), std::string("á\xC3\xB0"), std::string(), std::string("a\0bc", 4),
        std::string("ab\xFF\xFE"), std::string(1000, 'a'), std::string("a\nbc")}) {
    EXPECT_NE(filter_fault({.text = text}), "") << text;
  }
  EXPECT_NE(filter_fault({.person = std::string(1000, 'a')}), "");
  EXPECT_EQ(filter_fault({.text = "áðþ"}), "");
}

TEST_F(QueryTest, RandomTextsNeverFail) {
  add("anna", "m", 1000, "some path");
  std::uint32_t state = 1;
  const auto random = [&] { return state = state * 1'664'525 + 1'013'904'223, state >> 16; };
  const std::string alphabet = "\"'*^:(){}+-\\ abcNEARORANDNOT\xC3\xB0\xFF%_";
  for (int i = 0; i < 2000; ++i) {
    std::string text;
    for (std::uint32_t size = random() % 40; size > 0; --size)
      text += alphabet[random() % alphabet.size()];
    if (!filter_fault({.text = text}).empty()) continue;
    EXPECT_NO_THROW((void)find_rows(*database, {.text = text}, 0, 10)) << text;
  }
}

}  // namespace
}  // namespace vlk::relay
