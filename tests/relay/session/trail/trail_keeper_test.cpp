// The keeper of the trail: daily heads, the rule of retention, and what it finds at the start.
#include "relay/session/trail/trail_keeper.h"

#include <array>

#include "relay/session/parts_fixture.h"
#include "relay/storage/people/access_store.h"
#include "relay/storage/test_database.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDayMs = 86'400'000;

class TrailKeeperTest : public PartsTest {
 protected:
  void append(int count, std::int64_t time_ms) {
    database_.run_and_wait([&](Store& store) {
      for (int i = 0; i < count; ++i) {
        TrailEntry row = trail_entry<TrailKind::ControlRestart>({});
        row.time_ms = time_ms;
        append_trail(store.database(), std::array{row});
      }
    });
  }
  void keep_days(const char* days) {
    database_.run_and_wait([&](Store& store) { store_setting(store.database(), {kRetentionSetting, days}); });
  }
  std::int64_t number(const char* sql) {
    settle();
    Database database(file_);
    Statement query(database, sql);
    EXPECT_TRUE(query.step());
    return query.number(0);
  }
  std::int64_t heads() { return number("SELECT count(*) FROM trail_heads"); }
  std::int64_t oldest() { return number("SELECT min(id) FROM trail"); }
  TrailVerdict verify() { return verify_database(file_, key_.public_part()); }

  const TrailKey key_ = TrailKey::load_or_make(folder_.path().string());
  const std::int64_t now_ = trail_now();
};

TEST_F(TrailKeeperTest, StartSignsTheRowsOfTheLastRun) {
  append(3, now_);
  const TrailKeeper keeper(database_, key_, log_);
  EXPECT_EQ(verify().signed_through, 3);
}

TEST_F(TrailKeeperTest, HeadIsSignedOnceADay) {
  append(1, now_);
  TrailKeeper keeper(database_, key_, log_);
  append(1, now_);
  keeper.tick(now_);
  EXPECT_EQ(heads(), 1);
  keeper.tick(now_ + kDayMs);
  EXPECT_EQ(heads(), 2);
  append(1, now_);
  keeper.tick(now_ + kDayMs + 1000);
  EXPECT_EQ(heads(), 2);
  EXPECT_EQ(verify().signed_through, 2);
}

TEST_F(TrailKeeperTest, TouchedRowIsReportedAtTheStart) {
  append(3, now_);
  Database intruder(file_);
  drop_trail_triggers(intruder);
  intruder.execute("UPDATE trail SET actor = 'eve' WHERE id = 2");
  const TrailKeeper keeper(database_, key_, log_);
  EXPECT_TRUE(logged("the audit trail was touched: Row 2 was changed"));
  EXPECT_TRUE(audited().back().starts_with(R"(trail.broken {"row":2,"problem":"Row 2 was changed)"));
}

TEST_F(TrailKeeperTest, RowsStayWithoutARuleOfRetention) {
  append(3, now_ - 1000 * kDayMs);
  TrailKeeper keeper(database_, key_, log_);
  for (const char* days : {"", "0", "-3"}) {
    if (*days) keep_days(days);
    keeper.tick(now_ + kDayMs);
    EXPECT_EQ(oldest(), 1) << days;
  }
}

TEST_F(TrailKeeperTest, RuleOfRetentionRemovesOldRowsWithARowAboutIt) {
  append(3, now_ - 11 * kDayMs);
  append(2, now_ - 9 * kDayMs);
  TrailKeeper keeper(database_, key_, log_);
  keep_days("10");
  keeper.tick(now_);
  EXPECT_EQ(oldest(), 4);
  EXPECT_TRUE(audited().back().starts_with(R"(trail.shortened {"through":3,"before":)")) << audited().back();
  EXPECT_TRUE(audited().back().ends_with(R"("rows":3})")) << audited().back();
  EXPECT_TRUE(verify().intact) << verify().problem;
}

TEST_F(TrailKeeperTest, ManyOldRowsAreRemovedInStepsOfAMinute) {
  append(TrailKeeper::kRowsPerStep + 5, now_ - 11 * kDayMs);
  append(1, now_);
  TrailKeeper keeper(database_, key_, log_);
  keep_days("10");
  keeper.tick(now_);
  EXPECT_EQ(oldest(), TrailKeeper::kRowsPerStep + 1);
  keeper.tick(now_ + 59'000);
  EXPECT_EQ(oldest(), TrailKeeper::kRowsPerStep + 1);
  keeper.tick(now_ + 60'000);
  EXPECT_EQ(oldest(), TrailKeeper::kRowsPerStep + 6);
}

TEST_F(TrailKeeperTest, FailureIsReportedToTheLog) {
  append(1, now_);
  TrailKeeper keeper(database_, key_, log_);
  append(1, now_);
  Database(file_).execute("DROP TABLE trail_heads");
  keeper.sign();
  settle();
  EXPECT_TRUE(logged("cannot sign the trail: "));
}

}  // namespace
}  // namespace vlk::relay
