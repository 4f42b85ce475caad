// The database on a disk that fails: each call of SQLite's that changes a file fails once, and each is the
// first that finds the disk full.
#include <functional>
#include <map>
#include <set>
#include <string>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "relay/base/secrets.h"
#include "relay/storage/faults/failing_disk.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/test_database.h"
#include "relay/storage/thread/database_thread.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using vantelink_test::FailNth;

// A job of two rows, a machine and its row in the trail.
DatabaseThread::Job job(const std::string& id) {
  return [id](Store& store) {
    add_machine(store.database(), {.id = id});
    append_trail(store.database(),
                 std::vector{trail_entry<TrailKind::LoginFailed>({.actor = id}, "password")});
  };
}

class DiskFaultsTest : public testing::TestWithParam<DiskFault> {
 protected:
  // What came of a job: "stored" or why it failed.
  using Results = std::map<std::string, std::string>;

  void SetUp() override {
    RELAY_SKIP_WITHOUT_SQLITE();
    start_sodium();
  }

  // Opens the database, which may fail, and gives it jobs with and without a waiting caller. Then the disk
  // works again, and so must the database. Returns what was reported.
  static Results work_on(const std::string& file, FailNth& fail) {
    FailingDisk disk(GetParam());
    disk.fail(&fail);
    std::unique_ptr<Store> store;
    try {
      store = std::make_unique<Store>(file);
    } catch (const DatabaseError&) {
      EXPECT_TRUE(fail.reached());
      disk.fail(nullptr);
      store = std::make_unique<Store>(file);
    }
    asio::io_context loop{1};
    DatabaseThread thread(std::move(store), loop.get_executor());
    Results results;
    for (const char* const id : {"posted 1", "posted 2", "posted 3"})
      thread.post(job(id), [&results, id](const std::string& failure) {
        results[id] = failure.empty() ? "stored" : failure;
      });
    EXPECT_TRUE(thread.drain());
    for (const char* const id : {"waited 1", "waited 2"}) {
      try {
        thread.run_and_wait(job(id));
        results[id] = "stored";
      } catch (const DatabaseError& error) {
        results[id] = error.what();
      }
    }
    loop.poll();
    disk.fail(nullptr);
    EXPECT_NO_THROW(thread.run_and_wait(job("after")));
    results["after"] = "stored";
    return results;
  }

  // What is stored must be complete, and everything that was reported as stored must be in it. A job that was
  // reported as failed may be there, when the last step of its commit failed after the disk had it all.
  static void check(const std::string& file, const Results& results) {
    Store store(file);
    std::set<std::string> machines, actors;
    for (const MachineRecord& machine : load_machines(store.database()))
      EXPECT_TRUE(machines.insert(machine.id).second) << machine.id;
    Statement rows(store.database(), "SELECT actor FROM trail");
    while (rows.step())
      EXPECT_TRUE(actors.insert(rows.text(0)).second) << rows.text(0);
    EXPECT_EQ(machines, actors);
    EXPECT_EQ(results.size(), 6u);
    for (const auto& [id, result] : results) {
      if (result == "stored") {
        EXPECT_TRUE(machines.contains(id)) << id;
      }
    }
    Statement integrity(store.database(), "PRAGMA integrity_check");
    ASSERT_TRUE(integrity.step());
    EXPECT_EQ(integrity.text(0), "ok");
    EXPECT_TRUE(verify_after_last_head(store.database()).intact);
  }
};

TEST_P(DiskFaultsTest, WhatIsReportedAsStoredIsStoredAndWhatFailsIsWholeOrMissing) {
  int failed_jobs = 0;
  const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
    const vantelink_test::TempFolder folder;
    const std::string file = (folder.path() / "relay.db").string();
    Results results;
    ASSERT_NO_THROW(results = work_on(file, fail));
    for (const auto& result : results)
      failed_jobs += result.second != "stored";
    check(file, results);
  });
  std::printf("%d calls failed in turn, %d jobs failed\n", runs - 1, failed_jobs);
  EXPECT_GT(failed_jobs, 0);
}

INSTANTIATE_TEST_SUITE_P(Disks, DiskFaultsTest,
                         testing::Values(DiskFault::ErrorOnce, DiskFault::FullOnce, DiskFault::StaysFull));

}  // namespace
}  // namespace vlk::relay
