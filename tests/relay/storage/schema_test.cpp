// The tables of a new database, and the migration of version 1.
#include "relay/storage/schema.h"

#include <string>

#include <gtest/gtest.h>

#include "relay/storage/machines/machine_store.h"
#include "relay/storage/people/access_store.h"
#include "relay/storage/people/people_store.h"
#include "relay/storage/store.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

// The statements with which the relay created its tables in version 1.
constexpr char kVersion1[] = R"sql(
CREATE TABLE agents(
  id TEXT PRIMARY KEY, secret_hash BLOB NOT NULL, name TEXT NOT NULL, machine TEXT NOT NULL, os TEXT NOT NULL,
  hw_id TEXT NOT NULL, enrolled_at INTEGER NOT NULL, enrolled_from TEXT NOT NULL, last_seen INTEGER NOT NULL);
CREATE TABLE users(name TEXT PRIMARY KEY, password TEXT NOT NULL, created_at INTEGER NOT NULL);
CREATE TABLE logins(
  token_hash BLOB PRIMARY KEY, user TEXT NOT NULL REFERENCES users(name) ON DELETE CASCADE,
  expires_at INTEGER NOT NULL);
CREATE INDEX logins_by_user ON logins(user);
CREATE TABLE audit(
  id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, event TEXT NOT NULL, representative TEXT NOT NULL,
  agent TEXT NOT NULL, address TEXT NOT NULL, detail TEXT NOT NULL);
PRAGMA user_version = 1;
INSERT INTO agents VALUES('a', x'0102', 'name', 'machine', 'windows', 'hw', 100, '10.0.0.1:1', 200);
INSERT INTO users VALUES('ada', 'hash of ada', 50);
INSERT INTO logins VALUES(x'0A', 'ada', 5000000000);
INSERT INTO audit VALUES(7, 1000, 'login', 'ada', '', '10.0.0.2:2', '');
INSERT INTO audit VALUES(9, 1001, 'session-end', 'ada', 'a', '10.0.0.2:2', '5 closed');
)sql";

class SchemaTest : public testing::Test {
 protected:
  std::int64_t number(const char* query) {
    Database database(file_);
    Statement statement(database, query);
    return statement.step() ? statement.number(0) : -1;
  }

  vantelink_test::TempFolder folder_;
  const std::string file_ = (folder_.path() / "relay.db").string();
};

TEST_F(SchemaTest, NewDatabaseHasTheFirstGroupAndNothingElse) {
  Store store(file_);
  EXPECT_EQ(number("PRAGMA user_version"), 4);
  const auto groups = load_groups(store.database());
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].id, kFirstGroup);
  EXPECT_EQ(groups[0].name, "Machines");
  EXPECT_TRUE(load_people(store.database()).empty());
  EXPECT_TRUE(load_machines(store.database()).empty());
}

TEST_F(SchemaTest, PeopleAndLogInsOfVersion1BecomeAdministratorsAndFullLogIns) {
  Database(file_).execute(kVersion1);
  Store store(file_);
  EXPECT_EQ(number("PRAGMA user_version"), 4);
  const auto people = load_people(store.database());
  ASSERT_EQ(people.size(), 1u);
  EXPECT_EQ(people[0].name, "ada");
  EXPECT_EQ(people[0].password, "hash of ada");
  EXPECT_EQ(people[0].role, Role::Administrator);
  EXPECT_FALSE(people[0].must_change);
  EXPECT_EQ(people[0].created_at, 50);
  const auto logins = load_logins(store.database());
  ASSERT_EQ(logins.size(), 1u);
  EXPECT_EQ(logins[0].token_hash, Bytes{10});
  EXPECT_EQ(logins[0].person, people[0].id);
  EXPECT_EQ(logins[0].stage, LoginStage::Full);
  EXPECT_EQ(logins[0].expires_at, 5000000000);
}

TEST_F(SchemaTest, MachinesOfVersion1BecomeApprovedMachinesOfTheFirstGroup) {
  Database(file_).execute(kVersion1);
  Store store(file_);
  const auto machines = load_machines(store.database());
  ASSERT_EQ(machines.size(), 1u);
  EXPECT_EQ(machines[0].id, "a");
  EXPECT_EQ(machines[0].secret_hash, (Bytes{1, 2}));
  EXPECT_EQ(machines[0].enrolled_at, 100);
  EXPECT_EQ(machines[0].enrolled_from, "10.0.0.1:1");
  EXPECT_EQ(machines[0].last_seen, 200);
  EXPECT_EQ(machines[0].group, kFirstGroup);
  EXPECT_EQ(machines[0].state, MachineState::Approved);
}

TEST_F(SchemaTest, AuditRowsOfVersion1BecomeRowsOfTheTrailInTheirOrder) {
  Database(file_).execute(kVersion1);
  Store store(file_);
  Statement rows(store.database(),
                 "SELECT time, code, actor, machine, address, fields FROM trail ORDER BY id");
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.number(0), 1000'000);
  EXPECT_EQ(rows.text(1), "trail.imported");
  EXPECT_EQ(rows.text(5), R"({"event":"login","detail":""})");
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.number(0), 1001'000);
  EXPECT_EQ(rows.text(2) + ' ' + rows.text(3) + ' ' + rows.text(4), "ada a 10.0.0.2:2");
  EXPECT_EQ(rows.text(5), R"({"event":"session-end","detail":"5 closed"})");
  EXPECT_FALSE(rows.step());
  EXPECT_EQ(
      number("SELECT count(*) FROM sqlite_master WHERE name IN ('audit', 'users', 'agents', 'old_logins')"),
      0);
}

TEST_F(SchemaTest, MigrationThatFailsLeavesTheDatabaseOfVersion1) {
  Database(file_).execute(kVersion1);
  Database(file_).execute("CREATE TABLE trail(x)");
  EXPECT_THROW(Store{file_}, DatabaseError);
  EXPECT_EQ(number("PRAGMA user_version"), 1);
  EXPECT_EQ(number("SELECT count(*) FROM audit"), 2);
  EXPECT_EQ(number("SELECT count(*) FROM logins WHERE user = 'ada'"), 1);
  Database(file_).execute("DROP TABLE trail");
  Store store(file_);
  EXPECT_EQ(load_machines(store.database()).size(), 1u);
}

TEST_F(SchemaTest, DatabaseOfANewerVersionIsRefused) {
  Database(file_).execute("PRAGMA user_version = 5");
  EXPECT_THROW(Store{file_}, DatabaseError);
  EXPECT_EQ(number("PRAGMA user_version"), 5);
}

}  // namespace
}  // namespace vlk::relay
