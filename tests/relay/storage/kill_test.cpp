// What the relay's process has answered is stored when it is killed at any moment.
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/links/raw_session.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/store.h"
#include "relay/storage/trail/chain.h"
#include "support/peers/raw_agent.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"
#include "support/waiting.h"

namespace vlk::relay {
namespace {

using vantelink_test::RawAgent;
using vantelink_test::RelayProcess;

constexpr char kPassword[] = "correct horse battery";
constexpr int kEnrolments = 100;
constexpr int kEnrolmentsPerSource = 25;  // the relay limits the enrolments of one address
constexpr std::chrono::milliseconds kRowInterval{1};

class KillTest : public testing::Test {
 protected:
  KillTest() {
    start_sodium();
    std::filesystem::create_directories(data_);
    Store store(file_);
    store.add_user("admin", hash_password(kPassword));
    store.open_enrolment(60);
  }

  // Enrols machines until the relay has gone, and remembers the ids that it has answered.
  void enrol(unsigned short port, int first, int round) {
    for (int i = first; i < kEnrolments; i += 2) {
      const std::string source =
          "127.0." + std::to_string(round + 1) + '.' + std::to_string(2 + i / kEnrolmentsPerSource);
      RawAgent agent(port, source.c_str());
      agent.send(Msg::Hello, R"({"role":"agent"})");
      agent.send(Msg::Enroll, R"({"name":"n","machine_name":"m","os":"windows","hw_id":"x"})");
      const Envelope answer = agent.read();
      if (answer.type != static_cast<std::uint8_t>(Msg::EnrollResult)) continue;
      const std::lock_guard<std::mutex> guard(lock_);
      answered_.insert(Json::parse(answer.payload)["agent_id"].get<std::string>());
      ++count_;
    }
  }

  // Runs `work` until it throws because the relay has gone.
  template <class Work>
  static std::thread until_the_end(Work work) {
    return std::thread([work] {
      try {
        work();
      } catch (const std::exception&) {
        // The relay was killed.
      }
    });
  }

  // Starts a relay that writes a thousand rows a second, enrols machines, and kills it after about `enough`
  // enrolments.
  void run_and_kill(int round, int enough) {
    RelayProcess relay(data_, {});
    const auto port = static_cast<unsigned short>(relay.port());
    Browser browser(port);
    unsigned status = 0;
    const std::string login = Json{{"name", "admin"}, {"password", kPassword}}.dump();
    cookies_.push_back(Browser(port).request("POST", "/api/login", login).cookie);
    ASSERT_TRUE(browser.open_console(cookies_.back(), status)) << status;
    RawSession session(port, browser);
    count_ = 0;
    std::thread keys = until_the_end([&] { send_keys(browser, session.number()); });
    std::thread reader = until_the_end([&] {
      for (;;)
        (void)session.agent().read();
    });
    std::thread first = until_the_end([&] { enrol(port, 0, round); });
    std::thread second = until_the_end([&] { enrol(port, 1, round); });
    EXPECT_TRUE(vantelink_test::eventually([&] { return count_ >= enough; })) << relay.log();
    relay.kill();
    for (std::thread* thread : {&keys, &reader, &first, &second})
      thread->join();
  }

  // Each Ctrl+Alt+Del has a row.
  static void send_keys(Browser& browser, std::uint32_t session) {
    auto next = std::chrono::steady_clock::now();
    for (;;) {
      browser.send_envelope(Msg::SecureAttention, session, "{}");
      std::this_thread::sleep_until(next += kRowInterval);
    }
  }

  void expect_all_answered_rows() {
    Database database(file_);
    std::set<std::string> stored;
    for (const MachineRecord& machine : load_machines(database))
      stored.insert(machine.id);
    std::set<std::string> enrolled;
    Bytes previous(kTrailHashSize);
    std::int64_t last = 0;
    Statement rows(database, ("SELECT " + std::string(kTrailColumns) + " FROM trail ORDER BY id").c_str());
    while (rows.step()) {
      const TrailRow row = read_trail_row(rows);
      EXPECT_EQ(row.id, ++last);
      EXPECT_EQ(row.hash, row_hash(row, previous)) << row.id;
      previous = row.hash;
      if (row.entry.code == "machine.enrolled") enrolled.insert(row.entry.subject.machine);
    }
    for (const std::string& id : answered_)
      EXPECT_TRUE(stored.contains(id) && enrolled.contains(id)) << id;
    EXPECT_EQ(stored, enrolled);
  }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  const std::string file_ = data_ + "/relay.db";
  std::mutex lock_;
  std::set<std::string> answered_;
  std::atomic<int> count_ = 0;
  std::vector<std::string> cookies_;
};

TEST_F(KillTest, AnsweredEnrolmentsAndLogInsAreStoredAndTheChainIsComplete) {
  std::mt19937 random(std::random_device{}());
  constexpr int kRounds = 3;
  for (int round = 0; round < kRounds; ++round) {
    const int enough = std::uniform_int_distribution(1, kEnrolments - 10)(random);
    SCOPED_TRACE("killed after " + std::to_string(enough) + " enrolments");
    run_and_kill(round, enough);
    expect_all_answered_rows();
  }
  EXPECT_GE(answered_.size(), static_cast<std::size_t>(kRounds));
  const RelayProcess relay(data_, {});
  for (const std::string& cookie : cookies_) {
    Browser browser(static_cast<unsigned short>(relay.port()));
    EXPECT_EQ(browser.request("GET", "/api/me", {}, cookie).status, 200u);
  }
  // A session whose rows come faster than the disk takes them has ended already when the relay is killed; the
  // others get their end at the next start.
  Database database(file_);
  Statement sessions(
      database,
      "SELECT count(*), count(DISTINCT session), count(*) FILTER (WHERE code = 'session.ended') "
      "FROM trail WHERE code IN ('session.asked', 'session.ended')");
  ASSERT_TRUE(sessions.step());
  EXPECT_EQ(sessions.number(0), 2 * kRounds);
  EXPECT_EQ(sessions.number(1), kRounds);
  EXPECT_EQ(sessions.number(2), kRounds);
}

}  // namespace
}  // namespace vlk::relay
