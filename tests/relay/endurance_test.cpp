// What the relay keeps under strain: its machines from browsers that do not read, its rows from a sudden end,
// its memory from floods of names, and its operator from senseless options.
#include <set>

#include "fakes/fakes.h"
#include "relay/base/rate_counter.h"
#include "relay/options.h"
#include "relay/relay_fixture.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST_F(EnduranceTest, BrowserThatDoesNotReadLosesItsSessionAndTheMachineIsFreeAtOnce) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto slow = console();
  const std::uint32_t session = accepted_session(*slow, id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(300);
    limits_.dead_browser = std::chrono::hours(1);  // the slow browser stays, in the middle of its message
  });
  // More than the buffers of both ends of a connection take.
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("session " + std::to_string(session) + " ended: slow"));

  auto other = console();
  other->send({{"type", "open"}, {"agent", id}});
  const std::uint32_t next = other->read_text("session")["session"];
  // The machine's answer is heard only if the relay reads from it again.
  EXPECT_TRUE(logged("session " + std::to_string(next) + " accepted"));
  sender.join();

  const Json ended = slow->read_text("session");
  EXPECT_EQ(ended["session"], session);
  EXPECT_EQ(ended["reason"], "slow");
}

TEST_F(EnduranceTest, BrowserThatNeverReadsAgainIsCut) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = accepted_session(*browser, vantelink_fakes::saved_config().agent_id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(100);
    limits_.dead_browser = std::chrono::milliseconds(300);
  });
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("console of admin disconnected: does not read"));
  sender.join();
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, BrowserThatAnswersNoPingFreesItsMachine) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  accepted_session(*browser, vantelink_fakes::saved_config().agent_id);
  // This client answers pings only while it reads.
  on_relay([&] { limits_.idle_browser = std::chrono::milliseconds(100); });
  EXPECT_TRUE(logged("ended: browser-gone"));
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, AnsweredPingCountsAsASignOfLife) {
  auto browser = console();
  std::thread reader([&] {
    while (browser->read_text("agents")["agents"].empty()) {
    }
  });
  on_relay([&] { limits_.browser_ping = std::chrono::milliseconds(20); });
  // A second ping goes out only when the first has been answered.
  EXPECT_TRUE(eventually([&] { return browser->pings() > 2; }));
  const auto agent = connect_agent("Sæfari");
  reader.join();
}

// Adds machines until it is killed, and tells each through `pipe` once it is stored.
[[noreturn]] void add_machines_for_ever(const std::string& file, int pipe) {
  Store store(file);
  for (std::uint32_t number = 0;; ++number) {
    store.add_agent({std::to_string(number), "name", "machine", "windows", "", 1}, {1, 2, 3}, "address");
    if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
  }
}

TEST(StoreEndurance, RowsThatWereStoredSurviveAKill) {
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
    if (child == 0) add_machines_for_ever(file, ends[1]);
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
    // And the file is still one that can be written.
    store.add_agent({"after", "name", "machine", "windows", "", 1}, {1}, "address");
  }
  std::filesystem::remove_all(folder);
}

TEST(StoreEndurance, FileThatIsNoDatabaseIsRefusedAndLeftAsItIs) {
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

TEST(RateCounterTest, ForgetsTheOldestKeyAndKeepsItsBound) {
  RateCounter counter(2, std::chrono::seconds(600), 100);
  const auto start = Clock::now();
  for (int i = 0; i < 1000; ++i)
    counter.add("key" + std::to_string(i), start + std::chrono::seconds(i) / 10);
  EXPECT_EQ(counter.keys(), 100u);
  const auto end = start + std::chrono::seconds(100);
  counter.add("key999", end);
  EXPECT_TRUE(counter.exhausted("key999", end));
  EXPECT_FALSE(counter.exhausted("key0", end));
  EXPECT_FALSE(counter.exhausted("key999", end + std::chrono::seconds(600)));
}

TEST(OptionsTest, SenselessOptionsAreToldInOneSentence) {
  const std::vector<std::vector<std::string>> senseless = {
      {"--nonsense"},         {"--port"},          {"--port", "65536"},
      {"--port", "-1"},       {"--port", "8443x"}, {"--cert", "a.pem"},
      {"--key", "a.pem"},     {"--data", ""},      {"--add-user", " ada"},
      {"--add-user", "a\"b"}, {"extra"},           {"--add-user", "ada", "--remove-user", "ada"},
  };
  for (const auto& arguments : senseless) {
    Options options;
    std::string problem;
    EXPECT_FALSE(parse_options(arguments, options, problem)) << arguments.front();
    EXPECT_TRUE(problem.ends_with('.')) << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos);
  }
}

TEST(OptionsTest, GoodOptionsAreTaken) {
  Options options;
  std::string problem;
  ASSERT_TRUE(parse_options({"--port", "0", "--host", "a.example", "--host", "10.0.0.1", "--data", "d"},
                            options, problem));
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.hosts, (std::vector<std::string>{"a.example", "10.0.0.1"}));
  EXPECT_EQ(options.data, "d");
  Options none;
  ASSERT_TRUE(parse_options({}, none, problem));
  EXPECT_EQ(none.hosts, std::vector<std::string>{"localhost"});
}

}  // namespace
}  // namespace vlk::relay
