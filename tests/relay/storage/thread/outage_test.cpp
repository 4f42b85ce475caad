// A database server that goes away: the thread keeps what nobody waits for, refuses the rest, and stores each
// job once. The server of this test is its own, because it is killed and stopped.
#include <algorithm>
#include <fstream>
#include <future>
#include <map>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include "relay/storage/people/access_store.h"
#include "relay/storage/test_database.h"
#include "relay/storage/thread/database_thread.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

class OutageTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!uses_postgresql()) GTEST_SKIP() << "This test needs a PostgreSQL server.";
    server("start");
    std::ifstream url(folder_.path() / "url");
    std::getline(url, address_);
    DatabaseThread::Bounds bounds;
    bounds.patience = 400ms;
    bounds.look = 20ms;
    thread_ = std::make_unique<DatabaseThread>(std::make_unique<Store>(address_), io_.get_executor(), bounds);
    thread_->on_reach([this](const DatabaseThread::Reach& reach) { reaches_.push_back(reach); });
  }
  void TearDown() override {
    thread_.reset();
    if (uses_postgresql()) server("stop");
  }

  void server(const std::string& verb) { ASSERT_TRUE(run_test_server(verb, folder_.path())) << verb; }
  static DatabaseThread::Job insert(const std::string& key) {
    return [key](Store& store) {
      Statement(store.database(), "INSERT INTO settings VALUES(?, '')").bind(key).run();
    };
  }
  void post(const std::string& key) {
    thread_->post(insert(key), [this, key](const std::string& failure) { ends_[key] = failure; });
  }
  // Runs what has been given to the loop until the condition is true.
  void run_until(const std::function<bool()>& condition) {
    while (!condition()) {
      io_.restart();
      io_.run_one_for(50ms);
    }
  }
  std::vector<std::string> stored() {
    return thread_->run_and_wait([](Store& store) {
      std::vector<std::string> keys;
      for (const Setting& setting : load_settings(store.database()))
        keys.push_back(setting.key);
      std::ranges::sort(keys);
      return keys;
    });
  }

  vantelink_test::TempFolder folder_;
  std::string address_;
  asio::io_context io_{1};
  std::unique_ptr<DatabaseThread> thread_;
  std::vector<DatabaseThread::Reach> reaches_;
  std::map<std::string, std::string> ends_;
};

TEST_F(OutageTest, JobsThatNobodyWaitsForAreStoredOnceAfterTheReturn) {
  post("before");
  run_until([&] { return ends_.contains("before"); });
  server("kill");
  for (int i = 0; i < 2500; ++i)  // more than one transaction
    post("during" + std::to_string(i));
  run_until([&] { return !reaches_.empty(); });
  EXPECT_TRUE(reaches_[0].lost);
  EXPECT_NE(reaches_[0].reason, "");
  EXPECT_TRUE(thread_->lost());
  EXPECT_EQ(ends_.size(), 1u);
  server("restart");
  run_until([&] { return ends_.size() == 2501; });
  for (const auto& [key, failure] : ends_)
    EXPECT_EQ(failure, "") << key;
  EXPECT_EQ(stored().size(), 2501u);
  run_until([&] { return reaches_.size() == 2; });
  EXPECT_FALSE(reaches_[1].lost);
  EXPECT_GT(reaches_[1].lasted, 0ms);
  EXPECT_FALSE(thread_->lost());
}

TEST_F(OutageTest, CallersAreRefusedAfterTheirPatienceAndThenAtOnce) {
  server("kill");
  auto work = insert("waited-for");
  auto first = asio::co_spawn(io_, thread_->run(work), asio::use_future);
  run_until([&] { return first.wait_for(0s) == std::future_status::ready; });
  EXPECT_THROW(first.get(), DatabaseLost);
  auto second = asio::co_spawn(io_, thread_->run(work), asio::use_future);
  io_.restart();
  io_.poll();
  ASSERT_EQ(second.wait_for(0s), std::future_status::ready) << "refused without a wait";
  EXPECT_THROW(second.get(), DatabaseLost);
  EXPECT_THROW(thread_->run_and_wait(insert("blocked-for")), DatabaseLost);
  server("restart");
  run_until([&] { return !thread_->lost(); });
  EXPECT_TRUE(stored().empty()) << "a refused job is not stored later";
}

TEST_F(OutageTest, ShortOutageIsNotSeenByCallers) {
  thread_.reset();
  DatabaseThread::Bounds bounds;
  bounds.patience = 60s;
  thread_ = std::make_unique<DatabaseThread>(std::make_unique<Store>(address_), io_.get_executor(), bounds);
  server("kill");
  auto work = insert("waited-for");
  auto result = asio::co_spawn(io_, thread_->run(work), asio::use_future);
  io_.restart();
  io_.poll();
  server("restart");
  run_until([&] { return result.wait_for(0s) == std::future_status::ready; });
  EXPECT_NO_THROW(result.get());
  EXPECT_EQ(stored(), std::vector<std::string>{"waited-for"});
}

// The readers of the trail have connections of their own.
TEST_F(OutageTest, ConnectionThatOnlyReadsConnectsAgainByItself) {
  Database reader = Database::read_only(address_);
  const auto read = [&] {
    const Snapshot snapshot(reader);
    return load_settings(reader).size();
  };
  EXPECT_EQ(read(), 0u);
  server("kill");
  EXPECT_THROW(read(), DatabaseLost);
  EXPECT_THROW(read(), DatabaseLost);
  server("restart");
  EXPECT_EQ(read(), 0u);
  EXPECT_THROW(store_setting(reader, {"a", ""}), DatabaseError) << "it still only reads";
}

TEST_F(OutageTest, EndWithoutTheServerIsReportedAndDoesNotWait) {
  server("kill");
  post("left");
  run_until([&] { return thread_->lost(); });
  EXPECT_FALSE(thread_->drain());
  EXPECT_EQ(thread_->load().jobs, 1u);
  thread_.reset();
  io_.restart();
  io_.poll();
  EXPECT_NE(ends_["left"], "");
}

TEST_F(OutageTest, ChangesOfOthersDuringTheOutageAreLookedForAfterIt) {
  int changes = 0;
  thread_->on_outside_change([&] { ++changes; });
  server("kill");
  run_until([&] { return thread_->lost(); });
  server("restart");
  run_until([&] { return changes > 0; });
}

}  // namespace
}  // namespace vlk::relay
