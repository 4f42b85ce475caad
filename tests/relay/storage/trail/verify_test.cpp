// Verification of a trail: each kind of later change is found, and its row is named.
#include "relay/storage/trail/check/verify.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "relay/storage/trail/check/command.h"
#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

class VerifyTest : public TrailTest {
 protected:
  VerifyTest() {
    for (int i = 1; i <= 8; ++i) {
      append({trail_entry<TrailKind::SessionAnswered>(
          {"anna", "machine", "192.0.2.7:1", i % 2 ? std::optional<std::int64_t>(i) : std::nullopt},
          "accepted")});
      if (i == 3 || i == 6) sign();
    }
  }

  TrailVerdict verify() { return verify_database(file, key->public_part()); }

  // Tampers and expects the verdict to name this row.
  void expect_touched(const std::string& sql, std::optional<std::int64_t> row, const std::string& problem) {
    tamper(sql);
    const TrailVerdict verdict = verify();
    EXPECT_FALSE(verdict.intact) << sql;
    EXPECT_EQ(verdict.row, row) << sql << ": " << verdict.problem;
    EXPECT_NE(verdict.problem.find(problem), std::string::npos) << sql << ": " << verdict.problem;
  }
};

TEST_F(VerifyTest, AcceptsATrailAsItWasWritten) {
  const TrailVerdict verdict = verify();
  EXPECT_TRUE(verdict.intact) << verdict.problem;
  EXPECT_EQ(verdict.rows, 8);
  EXPECT_EQ(verdict.heads, 2);
  EXPECT_EQ(verdict.signed_through, 6);
}

TEST_F(VerifyTest, NamesTheRowOfWhichOneFieldWasChanged) {
  for (const char* change :
       {"time = time + 1", "code = 'session.answerec'", "actor = 'annb'", "machine = ''",
        "address = '192.0.2.7:2'", "session = NULL", "session = 4294967301",
        "fields = '{\"answer\":\"acceptee\"}'", "hash = (SELECT hash FROM trail WHERE id = 4)",
        "fields = '{\"answer\": \"accepted\"}'"}) {
    const TrailRow before = rows().at(4);
    expect_touched("UPDATE trail SET " + std::string(change) + " WHERE id = 5", 5, "Row 5 was changed");
    Statement(*database,
              "UPDATE trail SET time = ?, code = ?, actor = ?, machine = ?, address = ?, session = ?, "
              "fields = ?, hash = ? WHERE id = 5")
        .bind(before.entry.time_ms)
        .bind(before.entry.code)
        .bind(before.entry.subject.actor)
        .bind(before.entry.subject.machine)
        .bind(before.entry.subject.address)
        .bind(before.entry.subject.session)
        .bind(before.entry.fields)
        .bind(before.hash)
        .run();
    EXPECT_TRUE(verify().intact);
  }
}

TEST_F(VerifyTest, NamesARowThatIsMissing) {
  expect_touched("DELETE FROM trail WHERE id = 4", 4, "Row 4 is missing");
}

TEST_F(VerifyTest, NamesTheFirstRowWhenItIsMissing) {
  expect_touched("DELETE FROM trail WHERE id = 1", 1, "Row 1 is missing");
}

TEST_F(VerifyTest, NamesTheFirstOfTwoRowsThatWereSwapped) {
  expect_touched(
      "UPDATE trail SET id = 100 WHERE id = 4; UPDATE trail SET id = 4 WHERE id = 7;"
      "UPDATE trail SET id = 7 WHERE id = 100",
      4, "Row 4 was changed");
}

TEST_F(VerifyTest, NamesTheFirstRowThatWasCutOffTheEnd) {
  expect_touched("DELETE FROM trail WHERE id > 5", 6, "Row 6 is missing");
}

TEST_F(VerifyTest, CannotKnowRowsAfterTheLastHead) {
  tamper("DELETE FROM trail WHERE id > 6");
  EXPECT_TRUE(verify().intact);
}

TEST_F(VerifyTest, FindsAChainThatWasComputedAgain) {
  std::vector<TrailRow> all = rows();
  all[4].entry.subject.actor = "eve";
  Bytes previous = all[3].hash;
  tamper("");
  for (std::size_t i = 4; i < all.size(); ++i) {
    previous = row_hash(all[i], previous);
    Statement(*database, "UPDATE trail SET actor = ?, hash = ? WHERE id = ?")
        .bind(all[i].entry.subject.actor)
        .bind(previous)
        .bind(all[i].id)
        .run();
  }
  expect_touched("", std::nullopt, "The rows 4 to 6 do not fit the signed head");
}

TEST_F(VerifyTest, FindsAForgedHead) {
  expect_touched("UPDATE trail_heads SET day = '2001-01-01' WHERE last_id = 6", std::nullopt, "2001-01-01");
}

TEST_F(VerifyTest, FindsAnAnchorThatTheRelayDidNotMove) {
  expect_touched(
      "UPDATE trail_anchor SET first_id = 3, previous_hash = (SELECT hash FROM trail WHERE id = 2);"
      "DELETE FROM trail WHERE id < 3",
      std::nullopt, "The anchor was changed");
}

TEST_F(VerifyTest, AcceptsATrailThatTheRuleOfRetentionShortened) {
  Transaction transaction(*database);
  EXPECT_EQ(shorten_trail(*database, *key, trail_now() + 1000, 4), 4);
  transaction.commit();
  const TrailVerdict verdict = verify();
  EXPECT_TRUE(verdict.intact) << verdict.problem;
  EXPECT_EQ(verdict.rows, 5);
  expect_touched("DELETE FROM trail WHERE id = 5", 5, "Row 5 is missing");
}

TEST_F(VerifyTest, CommandPrintsTheVerdictAndReturnsItsCode) {
  std::ostringstream out;
  std::ostringstream err;
  TrailCall call{.data = folder->path().string()};
  if (uses_postgresql()) call = {.file = file, .key = call.data + "/trail-key.pub"};
  EXPECT_EQ(verify_trail_command(call, out, err), 0);
  EXPECT_NE(out.str().find("The trail is intact: 8 rows, 2 signed heads."), std::string::npos) << out.str();
  tamper("UPDATE trail SET actor = 'eve' WHERE id = 3");
  EXPECT_EQ(verify_trail_command(call, out, err), 1);
  EXPECT_NE(out.str().find("first at row 3"), std::string::npos) << out.str();
  EXPECT_EQ(err.str(), "");
}

TEST_F(VerifyTest, CommandRefusesWrongArguments) {
  RELAY_SKIP_WITHOUT_SQLITE();
  const std::string data = folder->path().string();
  for (const TrailCall& call : std::vector<TrailCall>{{},
                                                      {.file = "a", .data = data},
                                                      {.data = "/nonexistent"},
                                                      {.file = "/nonexistent"},
                                                      {.data = data, .key = "/nonexistent"}}) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(verify_trail_command(call, out, err), 2) << out.str();
    EXPECT_NE(err.str(), "");
  }
}

}  // namespace
}  // namespace vlk::relay
