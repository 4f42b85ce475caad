// The chain of hashes of the audit trail: its form, what the tables refuse, heads and retention.
#include "relay/storage/trail/chain.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include <sodium.h>

#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

TrailEntry ended(const char* reason, std::int64_t time_ms = 0) {
  TrailEntry entry = trail_entry<TrailKind::SessionEnded>({"anna", "m1", "192.0.2.7:50312", 7}, reason, 12);
  if (time_ms != 0) entry.time_ms = time_ms;
  return entry;
}

std::string prefixed(const std::string& text) {
  return std::string("\0\0\0", 3) + static_cast<char>(text.size()) + text;
}

TEST_F(TrailTest, HashesTheDocumentedBytes) {
  append({ended("closed", 1'700'000'000'123)});
  const std::string bytes = std::string(32, '\0') + prefixed("1") + prefixed("1700000000123") +
                            prefixed("session.ended") + prefixed("anna") + prefixed("m1") +
                            prefixed("192.0.2.7:50312") + prefixed("7") +
                            prefixed(R"({"reason":"closed","seconds":12})");
  Bytes expected(32);
  crypto_hash_sha256(expected.data(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  EXPECT_EQ(to_hex(rows().at(0).hash), to_hex(expected));
}

TEST_F(TrailTest, ChainsEachRowToTheOneBefore) {
  append({ended("closed"), ended("declined")});
  append({trail_entry<TrailKind::LoginSucceeded>({.actor = "björn"}, std::nullopt)});
  const auto all = rows();
  ASSERT_EQ(all.size(), 3u);
  Bytes previous(32);
  for (const TrailRow& row : all) {
    EXPECT_EQ(to_hex(row.hash), to_hex(row_hash(row, previous))) << row.id;
    previous = row.hash;
  }
  EXPECT_EQ(all[2].entry.fields, "{}");
  EXPECT_FALSE(all[2].entry.subject.session);
}

TEST_F(TrailTest, RefusesEachChangeOfItsTables) {
  append({ended("closed"), ended("closed")});
  sign();
  for (const char* sql :
       {"UPDATE trail SET actor = 'x'", "DELETE FROM trail", "DELETE FROM trail WHERE id = 2",
        "UPDATE trail_anchor SET first_id = 0", "DELETE FROM trail_anchor", "DELETE FROM trail_heads",
        "UPDATE trail_heads SET day = 'x'", "REPLACE INTO trail SELECT * FROM trail WHERE id = 1",
        "INSERT INTO trail SELECT 0, time, code, actor, machine, address, session, fields, hash FROM trail",
        "INSERT INTO trail SELECT 9, time, code, actor, machine, address, session, fields, x'' FROM trail"}) {
    EXPECT_THROW(database->execute(sql), DatabaseError) << sql;
  }
  EXPECT_EQ(rows().size(), 2u);
}

TEST_F(TrailTest, KeepsRowsThatArriveSlightlyOutOfOrderInTheOrderOfTheirIds) {
  append({ended("a", 100'000), ended("b", 99'000), ended("c", 50'000), ended("d", 60'000)});
  const auto all = rows();
  EXPECT_EQ(all[1].entry.time_ms, 100'000);
  EXPECT_EQ(all[2].entry.time_ms, 50'000);
  Statement steps(*database, "SELECT id FROM trail_steps");
  ASSERT_TRUE(steps.step());
  EXPECT_EQ(steps.number(0), 3);
  EXPECT_FALSE(steps.step());
}

TEST_F(TrailTest, SignsTheLastRowOnce) {
  sign();
  append({ended("closed", 1'700'000'000'000)});
  sign();
  sign();
  Statement query(*database, "SELECT day, last_id, hash, signature FROM trail_heads");
  ASSERT_TRUE(query.step());
  const TrailHead head{query.text(0), query.number(1), query.bytes(2), query.bytes(3)};
  EXPECT_EQ(head.day, "2023-11-14");
  EXPECT_EQ(head.last_id, 1);
  EXPECT_TRUE(signature_fits(key->public_part(), head_text(head), head.signature));
  EXPECT_FALSE(query.step());
}

TEST_F(TrailTest, RemovesOldRowsOnlyThroughTheAnchorAndLeavesARow) {
  append({ended("a", 1000), ended("b", 2000), ended("c", 3000), ended("d", 4000)});
  const Bytes second = rows().at(1).hash;
  Transaction transaction(*database);
  EXPECT_EQ(shorten_trail(*database, *key, 3000, 100), 2);
  transaction.commit();
  const auto all = rows();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].id, 3);
  EXPECT_EQ(all[2].entry.code, "trail.shortened");
  EXPECT_EQ(all[2].entry.fields, R"({"through":2,"before":"1970-01-01T00:00:03.000Z","rows":2})");
  const TrailAnchor anchor = trail_anchor(*database);
  EXPECT_EQ(anchor.first_id, 3);
  EXPECT_EQ(to_hex(anchor.previous_hash), to_hex(second));
  EXPECT_TRUE(signature_fits(key->public_part(), anchor_text(anchor), anchor.signature));
  EXPECT_THROW(database->execute("DELETE FROM trail WHERE id = 3"), DatabaseError);
  const std::string sql = "SELECT count(*) FROM trail WHERE " + text_condition(database->dialect());
  Statement left(*database, sql.c_str());
  ASSERT_TRUE(left.bind(text_pattern(database->dialect(), "anna")).bind(0).bind(100).step());
  EXPECT_EQ(left.number(0), 2);
}

TEST_F(TrailTest, RemovesAtMostTheLimitAndNeverTheLastRow) {
  append({ended("a", 1000), ended("b", 2000), ended("c", 3000)});
  EXPECT_EQ(shorten_trail(*database, *key, 9000, 1), 1);
  EXPECT_EQ(rows().size(), 3u);
  // The rows about the two removals remain.
  EXPECT_EQ(shorten_trail(*database, *key, trail_now() + 60'000, 100), 2);
  ASSERT_EQ(rows().size(), 2u);
  EXPECT_EQ(rows()[0].id, 4);
}

TEST_F(TrailTest, KeepsTheOnlyRow) {
  append({ended("a", 1000)});
  EXPECT_EQ(shorten_trail(*database, *key, 9000, 100), 0);
  EXPECT_EQ(rows().size(), 1u);
}

TEST_F(TrailTest, WritesTextsThatAreNotTextsAsTexts) {
  append({trail_entry<TrailKind::LoginFailed>({.actor = std::string("a\0b\xff", 4), .address = "x\ny"},
                                              std::string("\xff\n", 2))});
  const TrailRow row = rows().at(0);
  EXPECT_EQ(row.entry.subject.actor, "a b\xEF\xBF\xBD");
  EXPECT_EQ(row.entry.subject.address, "x y");
  EXPECT_EQ(row.entry.fields, "{\"step\":\"\xEF\xBF\xBD\\n\"}");
}

TEST_F(TrailTest, KeepsItsKeyPrivateAndTheSame) {
  const std::string path = folder->path().string();
  struct stat status {};
  ASSERT_EQ(::stat((path + "/trail-key.pem").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(TrailKey::load_or_make(path).public_part(), key->public_part());
  EXPECT_EQ(read_trail_public_key(path + "/trail-key.pub"), key->public_part());
  ASSERT_EQ(::chmod((path + "/trail-key.pem").c_str(), 0640), 0);
  EXPECT_THROW((void)TrailKey::load_or_make(path), std::runtime_error);
}

TEST(TrailTime, IsWrittenAndRead) {
  EXPECT_EQ(iso_time(1'700'000'000'123), "2023-11-14T22:13:20.123Z");
  EXPECT_EQ(parse_iso_time("2023-11-14T22:13:20.123Z"), 1'700'000'000'123);
  for (const char* text : {"", "2023-11-14", "2023-02-30T00:00:00.000Z", "2023-11-14T24:00:00.000Z",
                           "2023-11-14 22:13:20.123Z", "2o23-11-14T22:13:20.123Z"}) {
    EXPECT_FALSE(parse_iso_time(text)) << text;
  }
}

}  // namespace
}  // namespace vlk::relay
