// The trail of a day: 1,000 sessions with 100 rows each. Every change is found, and its row is named.
#include <algorithm>
#include <random>

#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

constexpr int kSessions = 1000;
constexpr std::int64_t kRowsPerSession = 100;
constexpr std::int64_t kRows = kSessions * kRowsPerSession;
constexpr int kHeadEvery = 250;  // sessions

class DayTest : public TrailTest {
 protected:
  DayTest() {
    if (!uses_postgresql())
      database->execute("PRAGMA synchronous = OFF");  // the test does not survive a power failure either
    const std::int64_t start = trail_now() - std::int64_t{86'400'000};
    for (int session = 0; session < kSessions; ++session) {
      append(session_rows(session, start + session * 86'000));
      if (session % kHeadEvery == kHeadEvery - 1) sign();
    }
  }

  static std::vector<TrailEntry> session_rows(int number, std::int64_t time_ms) {
    const TrailSubject subject{"person" + std::to_string(number % 20), "m-" + std::to_string(number % 300),
                               "192.0.2.7:" + std::to_string(2000 + number), number + 1};
    std::vector<TrailEntry> rows;
    rows.push_back(trail_entry<TrailKind::SessionAsked>(subject, "machine", "repair", std::nullopt));
    rows.push_back(trail_entry<TrailKind::SessionAnswered>(subject, "accepted"));
    for (int i = 0; i < 24; ++i) {
      const std::string path = "C:\\Users\\" + std::to_string(i) + ".txt";
      rows.push_back(trail_entry<TrailKind::FolderListed>(subject, "C:\\Users", i + 1));
      rows.push_back(trail_entry<TrailKind::FileStarted>(subject, i, "up", path, 4096));
      rows.push_back(
          trail_entry<TrailKind::ClipSent>(subject, "down", "text", 20, std::nullopt, std::nullopt));
      rows.push_back(trail_entry<TrailKind::FileEnded>(subject, i, "up", path, 4096, 4096, "ended"));
    }
    rows.push_back(trail_entry<TrailKind::ControlSecureAttention>(subject));
    rows.push_back(trail_entry<TrailKind::SessionEnded>(subject, "closed", 80));
    for (TrailEntry& row : rows)
      row.time_ms = time_ms++;
    return rows;
  }

  [[nodiscard]] TrailVerdict verify() const { return verify_database(file, key->public_part()); }

  void expect_named(const std::string& change, const std::string& undo, std::int64_t row) {
    tamper(change);
    const TrailVerdict verdict = verify();
    EXPECT_FALSE(verdict.intact) << change;
    EXPECT_EQ(verdict.row, row) << change << ": " << verdict.problem;
    tamper(undo);
  }

  // Touches the first, the last and some row in the database.
  void expect_rows_named_in_the_database() {
    std::mt19937 random(2);
    for (const std::int64_t row :
         {std::int64_t{1}, kRows, std::uniform_int_distribution<std::int64_t>(2, kRows - 1)(random)}) {
      const std::string id = std::to_string(row);
      const std::string actor = "UPDATE trail SET actor = replace(actor, ";
      expect_named(actor + "'person', 'qerson') WHERE id = " + id,
                   actor + "'qerson', 'person') WHERE id = " + id, row);
      expect_named("CREATE TEMP TABLE kept AS SELECT * FROM trail WHERE id = " + id +
                       ";DELETE FROM trail WHERE id = " + id,
                   "INSERT INTO trail SELECT * FROM kept; DROP TABLE kept", row);
      const std::string other = std::to_string(row == kRows ? row - 1 : row + 1);
      const std::string swap = "UPDATE trail SET id = -1 WHERE id = " + id + ";UPDATE trail SET id = " + id +
                               " WHERE id = " + other + ";UPDATE trail SET id = " + other + " WHERE id = -1";
      expect_named(swap, swap, row == kRows ? row - 1 : row);
    }
    EXPECT_TRUE(verify().intact);
  }
};

// What a checker says about the row after `before`, followed by `next`.
TrailVerdict checked(const TrailRow& before, const TrailRow& row, const TrailRow* next) {
  TrailChecker checker(std::nullopt, TrailAnchor{before.id + 1, before.hash, {}});
  checker.add_row(row);
  if (next) checker.add_row(*next);
  return checker.finish();
}

// One byte of the row, chosen by a random number, is changed.
TrailRow with_a_changed_byte(TrailRow row, std::uint32_t random) {
  std::string* texts[] = {&row.entry.code, &row.entry.subject.actor, &row.entry.subject.machine,
                          &row.entry.subject.address, &row.entry.fields};
  const std::uint32_t which = random % 8;
  const auto flip = static_cast<char>(1 + (random >> 8) % 255);
  if (which < std::size(texts)) {
    std::string& text = *texts[which];
    text[(random >> 16) % text.size()] ^= flip;
  } else if (which == 5) {
    row.entry.time_ms ^= std::int64_t{1} << (random >> 16) % 40;
  } else if (which == 6) {
    row.entry.subject.session = *row.entry.subject.session ^ (std::int64_t{1} << (random >> 16) % 30);
  } else {
    row.hash[(random >> 16) % row.hash.size()] ^= static_cast<std::uint8_t>(flip);
  }
  return row;
}

TEST_F(DayTest, EachRowIsNamedThatWasChangedRemovedOrSwapped) {
  const TrailVerdict verdict = verify();
  ASSERT_TRUE(verdict.intact) << verdict.problem;
  EXPECT_EQ(verdict.rows, kRows);
  EXPECT_EQ(verdict.signed_through, kRows);
  const std::vector<TrailRow> all = rows();
  std::mt19937 random(1);
  TrailRow before;
  before.hash = Bytes(kTrailHashSize);
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    const TrailRow& row = all[i];
    const TrailRow& next = all[i + 1];
    ASSERT_TRUE(checked(before, row, &next).intact) << row.id;
    ASSERT_EQ(checked(before, with_a_changed_byte(row, static_cast<std::uint32_t>(random())), &next).row,
              row.id)
        << "changed";
    ASSERT_EQ(checked(before, next, nullptr).row, row.id) << "removed";
    TrailRow first = next;
    TrailRow second = row;
    std::swap(first.id, second.id);
    ASSERT_EQ(checked(before, first, &second).row, row.id) << "swapped";
    before = row;
  }
  expect_rows_named_in_the_database();
}

}  // namespace
}  // namespace vlk::relay
