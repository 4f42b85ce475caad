// The order, the transactions and the failures of the jobs of the database's thread.
#include "relay/storage/thread/database_thread.h"

#include <sys/wait.h>

#include <future>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include "relay/storage/people/access_store.h"
#include "relay/storage/test_database.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;

class DatabaseThreadTest : public testing::Test {
 protected:
  void start(const DatabaseThread::Bounds& bounds = {}) {
    thread_.reset();
    thread_ = std::make_unique<DatabaseThread>(std::make_unique<Store>(file_), io_.get_executor(), bounds);
  }

  static DatabaseThread::Job insert(const std::string& key) {
    return [key](Store& store) {
      Statement(store.database(), "INSERT INTO settings VALUES(?, 'value')").bind(key).run();
    };
  }

  DatabaseThread::OnDone remember() {
    return [this](const std::string& failure) {
      if (!failure.empty()) failures_.push_back(failure);
    };
  }

  // Waits for the jobs and runs their callbacks.
  void settle() {
    thread_->drain();
    run_callbacks();
  }

  void run_callbacks() {
    io_.restart();
    io_.poll();
  }

  std::string stored() {
    Database database(file_);
    // The rows are listed in the order in which they were stored.
    Statement rows(database, database.dialect() == Dialect::Sqlite
                                 ? "SELECT key FROM settings ORDER BY rowid"
                                 : "SELECT key FROM settings ORDER BY ctid");
    std::string keys;
    while (rows.step())
      keys += rows.text(0);
    return keys;
  }

  // Starts the coroutine; its result is ready after settle().
  template <class Work>
  auto run(Work work) {
    auto result = asio::co_spawn(io_, thread_->run(work), asio::use_future);
    run_callbacks();
    return result;
  }

  vantelink_test::TempFolder folder_;
  const std::string file_ = database_in(folder_.path());
  asio::io_context io_{1};
  std::vector<std::string> failures_;
  std::unique_ptr<DatabaseThread> thread_;
};

TEST_F(DatabaseThreadTest, ResultOfAJobIsReturnedOnTheLoopAfterTheCommit) {
  start();
  auto result = run([&](Store& store) {
    insert("a")(store);
    return std::this_thread::get_id();
  });
  thread_->drain();
  EXPECT_EQ(stored(), "a");
  EXPECT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "the loop has not run";
  run_callbacks();
  EXPECT_NE(result.get(), std::this_thread::get_id());
}

TEST_F(DatabaseThreadTest, JobsRunInTheirOrder) {
  start();
  std::string order;
  for (const char* key : {"a", "b", "c", "d"})
    thread_->post(insert(key), remember());
  settle();
  EXPECT_EQ(stored(), "abcd");
  EXPECT_TRUE(failures_.empty());
}

TEST_F(DatabaseThreadTest, JobsThatWaitTogetherShareATransaction) {
  start({.gather = std::chrono::milliseconds(200)});
  const std::uint64_t before = thread_->commits();
  for (int i = 0; i < 500; ++i)
    thread_->post(insert(std::to_string(i) + ' '), remember());
  settle();
  EXPECT_LE(thread_->commits() - before, 2u);
  EXPECT_TRUE(failures_.empty());
}

TEST_F(DatabaseThreadTest, JobThatFailsIsUndoneAlone) {
  start({.gather = std::chrono::milliseconds(200)});
  thread_->post(insert("a"), remember());
  thread_->post(
      [](Store& store) {
        insert("b")(store);
        insert("a")(store);
      },
      remember());
  auto thrown = run([](Store& store) {
    insert("d")(store);
    throw std::runtime_error("the job's own error");
  });
  thread_->post(insert("c"), remember());
  settle();
  EXPECT_EQ(stored(), "ac");
  ASSERT_EQ(failures_.size(), 1u);
  EXPECT_NE(failures_[0].find("constraint"), std::string::npos) << failures_[0];
  EXPECT_THROW(thrown.get(), std::runtime_error);
}

TEST_F(DatabaseThreadTest, FullQueueRefusesJobsUntilItHasRoom) {
  Database other(file_);
  start({.jobs = 2});
  other.engine().begin_writing();
  thread_->post(insert("a"), remember());
  thread_->post(insert("b"), remember());
  thread_->post(insert("c"), remember());
  auto refused = run(insert("d"));
  EXPECT_THROW(refused.get(), DatabaseBusy);
  EXPECT_EQ(failures_, std::vector{std::string(DatabaseBusy().what())});
  other.execute("ROLLBACK");
  settle();
  thread_->post(insert("e"), remember());
  settle();
  EXPECT_EQ(stored(), "abe");
  EXPECT_EQ(failures_.size(), 1u);
}

TEST_F(DatabaseThreadTest, QueueIsLimitedInBytesToo) {
  Database other(file_);
  start({.bytes = 10'000});
  other.engine().begin_writing();
  thread_->post(insert("a"), remember(), 9'000);
  thread_->post(insert("b"), remember(), 9'000);
  run_callbacks();
  EXPECT_EQ(failures_.size(), 1u);
  other.execute("ROLLBACK");
  settle();
  EXPECT_EQ(stored(), "a");
}

TEST_F(DatabaseThreadTest, FullDiskFailsTheJobsThatDoNotFitAndNoOther) {
  RELAY_SKIP_WITHOUT_SQLITE();
  start({.gather = std::chrono::milliseconds(200)});
  thread_->run_and_wait([](Store& store) {
    Statement pages(store.database(), "PRAGMA page_count");
    pages.step();
    const std::string limit = "PRAGMA max_page_count = " + std::to_string(pages.number(0) + 8);
    pages.run();
    store.database().execute(limit.c_str());
  });
  thread_->post(insert("a"), remember());
  thread_->post(insert(std::string(1 << 20, 'x')), remember());
  thread_->post(insert("b"), remember());
  settle();
  ASSERT_EQ(failures_.size(), 1u);
  EXPECT_NE(failures_[0].find("full"), std::string::npos) << failures_[0];
  EXPECT_EQ(stored(), "ab");
}

TEST_F(DatabaseThreadTest, QueuedJobsAreCommittedBeforeTheEnd) {
  start({.gather = std::chrono::seconds(60)});
  thread_->post(insert("a"), remember());
  thread_.reset();
  EXPECT_EQ(stored(), "a");
}

TEST_F(DatabaseThreadTest, ChangeByAnotherConnectionIsReportedAndAnOwnChangeIsNot) {
  start({.look = std::chrono::milliseconds(1)});
  int reports = 0;
  thread_->on_outside_change([&] { ++reports; });
  thread_->run_and_wait(insert("a"));
  thread_->run_and_wait([](Store&) {});
  run_callbacks();
  EXPECT_EQ(reports, 0);
  Database(file_).execute("INSERT INTO settings VALUES('b', '')");
  io_.restart();
  const auto work = asio::make_work_guard(io_);
  io_.run_one_for(std::chrono::seconds(20));
  EXPECT_EQ(reports, 1);
}

TEST_F(DatabaseThreadTest, LockOfAnotherConnectionDelaysJobsOnly) {
  Database other(file_);
  start();
  other.engine().begin_writing();
  thread_->post(insert("a"), remember());
  run_callbacks();
  EXPECT_EQ(stored(), "");
  other.execute("COMMIT");
  settle();
  EXPECT_EQ(stored(), "a");
}

TEST_F(DatabaseThreadTest, JobThatReadsDoesNotWaitForTheLockOfAnotherConnection) {
  Database other(file_);
  start();
  other.engine().begin_writing();
  auto load = [](Store& store) { return load_settings(store.database()).size(); };
  auto found = asio::co_spawn(io_, thread_->run_reading(load), asio::use_future);
  run_callbacks();
  thread_->post_reading([](Store& store) { (void)load_settings(store.database()); }, remember());
  settle();
  EXPECT_EQ(found.get(), 0u);
  EXPECT_EQ(thread_->run_and_wait(load, DatabaseThread::Access::Reads), 0u);
  EXPECT_EQ(thread_->commits(), 0u);
  EXPECT_TRUE(failures_.empty());
}

TEST_F(DatabaseThreadTest, JobThatReadsSeesWhatTheJobsBeforeItHaveStored) {
  start();
  std::promise<void> release;
  thread_->post([held = release.get_future().share()](Store&) { held.wait(); }, remember());
  std::string sizes;
  const auto read = [&](Store& store) { sizes += std::to_string(load_settings(store.database()).size()); };
  for (const char* key : {"a", "b"}) {
    thread_->post(insert(key), remember());
    thread_->post_reading(read, remember());
    thread_->post_reading([](Store&) { throw DatabaseError("failed"); }, remember());
    thread_->post_reading(read, remember());
  }
  release.set_value();
  settle();
  EXPECT_EQ(sizes, "1122");
  EXPECT_EQ(stored(), "ab");
  EXPECT_EQ(failures_, std::vector<std::string>(2, "failed"));
}

TEST_F(DatabaseThreadTest, LoadCountsWhatWaitsAndTheTimesOfWhatIsDone) {
  start();
  std::promise<void> release;
  thread_->post([held = release.get_future().share()](Store&) { held.wait(); }, remember());
  thread_->post(insert("a"), remember(), 1000);
  EXPECT_EQ(thread_->load().jobs, 2u);
  EXPECT_GE(thread_->load().bytes, 1000u);
  release.set_value();
  settle();
  const DatabaseThread::Load load = thread_->load();
  EXPECT_EQ(load.jobs, 0u);
  EXPECT_EQ(load.bytes, 0u);
  std::uint64_t done = 0;
  for (const std::uint64_t count : load.times.classes())
    done += count;
  EXPECT_EQ(done, 2u);
}

}  // namespace
}  // namespace vlk::relay
