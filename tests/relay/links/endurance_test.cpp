// The relay with browsers that do not read or answer, and its database after the process was killed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using EnduranceTest = RelayTest;

std::uint32_t accepted_session(Browser& browser, const std::string& agent) {
  browser.send({{"type", "open"}, {"agent", agent}});
  EXPECT_EQ(browser.read_text("session")["state"], "waiting");
  const Json accepted = browser.read_text("session");
  EXPECT_EQ(accepted["state"], "accepted");
  return accepted["session"];
}

TEST_F(EnduranceTest, SessionOfABrowserThatDoesNotReadEndsAndTheMachineCanBeUsedAgain) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto slow = console();
  const std::uint32_t session = accepted_session(*slow, id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(300);
    limits_.dead_browser = std::chrono::hours(1);  // keeps the slow browser connected
  });
  // The message is larger than the buffers at both ends of a connection.
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("session " + std::to_string(session) + " ended: slow"));

  auto other = console();
  other->send({{"type", "open"}, {"agent", id}});
  const std::uint32_t next = other->read_text("session")["session"];
  // The machine's answer arrives only if the relay reads from the machine again.
  EXPECT_TRUE(logged("session " + std::to_string(next) + " accepted"));
  sender.join();

  const Json ended = slow->read_text("session");
  EXPECT_EQ(ended["session"], session);
  EXPECT_EQ(ended["reason"], "slow");
}

TEST_F(EnduranceTest, BrowserThatStillDoesNotReadAfterItsSessionEndedIsDisconnected) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = accepted_session(*browser, vantelink_fakes::saved_config().agent_id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(100);
    limits_.dead_browser = std::chrono::milliseconds(300);
  });
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("browser of admin disconnected: does not read"));
  sender.join();
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, MachineIsOnlineAgainAfterItsBrowserStoppedAnsweringPings) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  accepted_session(*browser, vantelink_fakes::saved_config().agent_id);
  // The test's browser answers pings only while it reads.
  on_relay([&] { limits_.idle_browser = std::chrono::milliseconds(100); });
  EXPECT_TRUE(logged("ended: browser-gone"));
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, BrowserIsPingedAgainAfterItAnsweredAPing) {
  auto browser = console();
  std::thread reader([&] {
    while (browser->read_text("agents")["agents"].empty()) {
    }
  });
  on_relay([&] { limits_.browser_ping = std::chrono::milliseconds(20); });
  // The relay sends a further ping only after the previous ping was answered.
  EXPECT_TRUE(eventually([&] { return browser->pings() > 2; }));
  const auto agent = connect_agent("Sæfari");
  reader.join();
}

// Adds machines until the process is killed, and writes the number of each to `pipe` after it is stored.
[[noreturn]] void add_machines_forever(const std::string& file, int pipe) {
  Store store(file);
  for (std::uint32_t number = 0;; ++number) {
    store.add_agent({std::to_string(number), "name", "machine", "windows", "", 1}, {1, 2, 3}, "address");
    if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
  }
}

TEST(StoreEndurance, RowsAreStillStoredAfterTheProcessWasKilled) {
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  const std::string folder = ::mkdtemp(name);
  const std::string file = folder + "/relay.db";
  std::uint32_t stored = 0;
  for (const std::uint32_t enough : {1u, 7u, 40u}) {
    std::filesystem::remove(file);
    std::filesystem::remove(file + "-wal");
    std::filesystem::remove(file + "-shm");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) add_machines_forever(file, ends[1]);
    ::close(ends[1]);
    while (::read(ends[0], &stored, sizeof stored) == sizeof stored && stored < enough) {
    }
    ::kill(child, SIGKILL);
    while (::read(ends[0], &stored, sizeof stored) == sizeof stored) {
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);

    Store store(file);
    std::set<std::string> ids;
    for (const AgentRecord& agent : store.agents())
      ids.insert(agent.id);
    for (std::uint32_t number = 0; number <= stored; ++number) {
      EXPECT_TRUE(ids.contains(std::to_string(number))) << number << " of " << stored;
    }
    // The database can still be written.
    store.add_agent({"after", "name", "machine", "windows", "", 1}, {1}, "address");
  }
  std::filesystem::remove_all(folder);
}

TEST(StoreEndurance, FileThatIsNotADatabaseIsRefusedAndKeepsItsSize) {
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  const std::string folder = ::mkdtemp(name);
  const std::string file = folder + "/relay.db";
  const std::string text(4096, 'n');
  std::FILE* stream = std::fopen(file.c_str(), "w");
  ASSERT_NE(stream, nullptr);
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fclose(stream);
  EXPECT_THROW(Store{file}, DatabaseError);
  EXPECT_EQ(std::filesystem::file_size(file), text.size());
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vlk::relay
