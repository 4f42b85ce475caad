// The rows of the audit trail, and what happens when the database cannot write them.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class AuditTrailTest : public PartsTest {
 protected:
  AuditTrailTest() : session_{7, log_in("a"), browse("ada")} {}

  const Session session_;
};

TEST_F(AuditTrailTest, RowIsWrittenWithAllItsFields) {
  parts_->audit.write(trail_entry<TrailKind::LoginFailed>({"ada", "a", "10.0.0.2:2000", {}}, "password"));
  settle();
  Database database(file_);
  Statement row(database, "SELECT code, actor, machine, address, fields, time / 1000 FROM trail");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(0), "login.failed");
  EXPECT_EQ(row.text(1), "ada");
  EXPECT_EQ(row.text(2), "a");
  EXPECT_EQ(row.text(3), "10.0.0.2:2000");
  EXPECT_EQ(row.text(4), R"({"step":"password"})");
  EXPECT_NEAR(static_cast<double>(row.number(5)), static_cast<double>(wall_seconds()), 60);
}

TEST_F(AuditTrailTest, NoteHasTheRepresentativeMachineAndNumberOfItsSession) {
  parts_->audit.note(session_, trail_entry<TrailKind::ControlRestart>({}));
  EXPECT_EQ(audited(), (Lines{"control.restart/7 {}"}));
  EXPECT_EQ(parts_->audit.stored(), 1u);
  EXPECT_EQ(parts_->audit.lost(), 0u);
  Database database(file_);
  Statement row(database, "SELECT actor, machine, address FROM trail");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(0) + ' ' + row.text(1) + ' ' + row.text(2), "ada a 10.0.0.2:2000");
}

TEST_F(AuditTrailTest, RowThatCannotBeWrittenIsReportedToTheLogAndToItsSender) {
  break_audit_trail();
  bool lost = false;
  parts_->audit.write(trail_entry<TrailKind::LoginFailed>({.actor = "ada"}, "password"),
                      [&] { lost = true; });
  EXPECT_FALSE(lost);
  settle();
  EXPECT_TRUE(lost);
  EXPECT_EQ(parts_->audit.lost(), 1u);
  EXPECT_TRUE(logged("trail row \"login.failed\" is lost: The database failed"));
}

TEST_F(AuditTrailTest, SessionWithTooManyWaitingRowsEndsAndOtherSessionsGoOn) {
  const auto agent = log_in("b");
  const std::uint32_t busy = accepted(session_.console, agent);
  const std::uint32_t quiet = accepted(session_.console, session_.agent);
  settle();
  Database other(file_);
  other.engine().begin_writing();
  for (int i = 0; i < 2001; ++i)
    parts_->audit.note(*parts_->sessions.find(busy), trail_entry<TrailKind::ControlRestart>({}));
  EXPECT_NE(parts_->sessions.find(busy), nullptr) << "the sender may still use it";
  io_.restart();
  io_.poll();
  EXPECT_EQ(parts_->sessions.find(busy), nullptr);
  EXPECT_NE(parts_->sessions.find(quiet), nullptr);
  other.execute("ROLLBACK");
  EXPECT_EQ(audited().size(), 4u + 2000u + 1u) << "the rows that waited and the end are written";
}

}  // namespace
}  // namespace vlk::relay
