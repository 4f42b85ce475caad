// The rows of the audit trail, and what happens when the database cannot write them.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class AuditTrailTest : public PartsTest {
 protected:
  AuditTrailTest() : session_{7, log_in("a"), browse("ada")} {}

  const Session session_;
};

TEST_F(AuditTrailTest, RowIsWrittenAtOnceWithAllItsFields) {
  parts_->audit.write({"login", "ada", "a", "10.0.0.2:2000", "detail"});
  Database database(file_);
  Statement row(database, "SELECT event, representative, agent, address, detail, time FROM audit");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(0), "login");
  EXPECT_EQ(row.text(1), "ada");
  EXPECT_EQ(row.text(2), "a");
  EXPECT_EQ(row.text(3), "10.0.0.2:2000");
  EXPECT_EQ(row.text(4), "detail");
  EXPECT_NEAR(static_cast<double>(row.number(5)), static_cast<double>(wall_seconds()), 60);
}

TEST_F(AuditTrailTest, NotesAreWrittenByWriteNotesWithTheRepresentativeAndMachineOfTheirSession) {
  parts_->audit.note(session_, {"upload", "1 a"});
  parts_->audit.note(session_, {"upload-end", "1 ended 5"});
  EXPECT_EQ(audited(), Lines{});
  parts_->audit.write_notes();
  EXPECT_EQ(audited(), (Lines{"upload: 1 a", "upload-end: 1 ended 5"}));
  parts_->audit.write_notes();
  EXPECT_EQ(audited().size(), 2u) << "each note is written once";
  Database database(file_);
  Statement row(database, "SELECT representative, agent, address FROM audit");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(0) + ' ' + row.text(1) + ' ' + row.text(2), "ada a 10.0.0.2:2000");
}

TEST_F(AuditTrailTest, UnwrittenNotesAreWrittenWhenTheRelayStops) {
  parts_->audit.note(session_, {"upload", "1 a"});
  parts_.reset();
  EXPECT_EQ(audited(), (Lines{"upload: 1 a"}));
}

TEST_F(AuditTrailTest, RowThatTheDatabaseCannotWriteIsLoggedAsLost) {
  break_audit_trail();
  parts_->audit.write({"login", "ada", "", "", ""});
  EXPECT_TRUE(logged("audit record \"login\" is lost: The database failed"));
}

TEST_F(AuditTrailTest, NotesThatTheDatabaseCannotWriteAreLoggedAsLostAndNotTriedAgain) {
  parts_->audit.note(session_, {"upload", "1 a"});
  parts_->audit.note(session_, {"upload-end", "1 ended 5"});
  break_audit_trail();
  parts_->audit.write_notes();
  EXPECT_TRUE(logged("2 audit records of sessions are lost: The database failed"));
  log_text_.clear();
  parts_->audit.write_notes();
  EXPECT_EQ(log_text_, "");
}

}  // namespace
}  // namespace vlk::relay
