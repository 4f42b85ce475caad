// Two relays with one PostgreSQL database: each shows the machines of the other, and leads browsers there.
#include <filesystem>

#include "fakes/fakes.h"
#include "relay/base/clock.h"
#include "relay/metrics/operator_client.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"
#include "relay/storage/cluster/relay_store.h"
#include "relay/storage/test_database.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

class ClusterTest : public RelayTest {
 protected:
  void SetUp() override {
    if (!uses_postgresql()) GTEST_SKIP() << "This test needs a PostgreSQL server.";
    cluster_.name = "north";
    cluster_.address = "https://north.example";
    operators_ = parse_operators_address("127.0.0.1:0");
    cluster_.flush = cluster_.beat = std::chrono::milliseconds(20);
    RelayTest::SetUp();
    start_other();
  }
  void TearDown() override {
    stop_other();
    if (uses_postgresql()) RelayTest::TearDown();
  }

  Server::Settings other_settings() const {
    Server::Settings settings;
    settings.data = folder_ / "south";
    settings.console = folder_ / "console";
    settings.certificate = certificate_;
    settings.cluster = cluster_;
    settings.cluster.name = "south";
    settings.cluster.address = "https://south.example";
    return settings;
  }
  void start_other() {
    std::filesystem::create_directory(folder_ / "south");
    std::filesystem::permissions(folder_ / "south", std::filesystem::perms::owner_all);
    for (const char* key : {"trail-key.pem", "trail-key.pub"})
      std::filesystem::copy_file(folder_ / key, folder_ / "south" / key);
    other_ = std::make_unique<Server>(other_settings(), std::make_unique<Store>(database_in(folder_)), *log_,
                                      limits_);
    other_thread_ = std::thread([this] { other_->run(); });
  }
  void stop_other() {
    if (!other_) return;
    other_->stop();
    other_thread_.join();
    other_.reset();
  }
  // Connects an agent to the other relay, and waits until this one knows.
  std::unique_ptr<agent::AgentClient> connect_to_other(const std::string& name) {
    agent::AgentConfig config;
    config.display_name = name;
    config.unattended = true;
    config.server_host = "localhost";
    config.server_port = other_->port();
    auto client = std::make_unique<agent::AgentClient>(config, agent::AgentCallbacks{});
    client->start();
    wait_for_machine(name, "online");
    return client;
  }
  static Browser::Answer post(unsigned short port, const std::string& path, const Json& body,
                              const std::string& cookie = {}) {
    return Browser(port).request("POST", path, body.dump(), cookie);
  }

  std::unique_ptr<Server> other_;
  std::thread other_thread_;
};

TEST_F(ClusterTest, BrowserIsLedToTheRelayThatHasTheMachine) {
  const auto agent = connect_to_other("Esja");
  const std::string id = wait_for_machine("Esja", "online")["id"];
  auto here = console();
  here->send({{"type", "open"}, {"agent", id}});
  EXPECT_EQ(here->read_text("error")["code"], "elsewhere");

  const std::string cookie = log_in();
  const auto given = post(port_, "/api/tickets", {{"machine", id}}, cookie);
  ASSERT_EQ(given.status, 200u) << given.text;
  EXPECT_EQ(given.body["address"], "https://south.example");
  const Json ticket = {{"ticket", given.body["ticket"]}};
  EXPECT_EQ(post(port_, "/api/login/ticket", ticket).status, 401u) << "the ticket is for the other relay";
  const auto moved = post(other_->port(), "/api/login/ticket", ticket);
  ASSERT_EQ(moved.status, 200u) << moved.text;
  EXPECT_EQ(moved.body["stage"], "full");
  EXPECT_EQ(moved.body["home"], "https://localhost:" + std::to_string(port_));
  EXPECT_EQ(post(other_->port(), "/api/login/ticket", ticket).status, 401u) << "a ticket is used once";

  Browser there(other_->port());
  unsigned status = 0;
  ASSERT_TRUE(there.open_console(moved.cookie, status)) << status;
  EXPECT_NE(there.open_session(id), 0u);
  EXPECT_EQ(stored("SELECT count(*) FROM trail WHERE code = 'login.succeeded' AND fields LIKE '%moved%'"),
            std::multiset<std::string>{"1"});
}

TEST_F(ClusterTest, NobodyGetsATicketForAMachineThatIsHereOrUnknown) {
  const auto agent = connect_agent("Hekla");
  const std::string cookie = log_in();
  const std::string id = wait_for_machine("Hekla", "online")["id"];
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}, cookie).status, 404u);
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", "nobody"}}, cookie).status, 404u);
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}).status, 401u);
  EXPECT_EQ(post(port_, "/api/login/ticket", {{"ticket", "guessed"}}).status, 401u);
}

TEST_F(ClusterTest, TicketEndsWithItsTimeAndWithItsLogIn) {
  const auto agent = connect_to_other("Esja");
  const std::string id = wait_for_machine("Esja", "online")["id"];
  const std::string cookie = log_in();
  const auto late = post(port_, "/api/tickets", {{"machine", id}}, cookie);
  Database(database_in(folder_)).execute("UPDATE tickets SET expires_at = 5");
  EXPECT_EQ(post(other_->port(), "/api/login/ticket", {{"ticket", late.body["ticket"]}}).status, 401u);
  const auto ended = post(port_, "/api/tickets", {{"machine", id}}, cookie);
  EXPECT_EQ(post(port_, "/api/logout", Json::object(), cookie).status, 200u);
  EXPECT_EQ(post(other_->port(), "/api/login/ticket", {{"ticket", ended.body["ticket"]}}).status, 401u);
}

TEST_F(ClusterTest, LogInHasFewTicketsAtATime) {
  const auto agent = connect_to_other("Esja");
  const std::string id = wait_for_machine("Esja", "online")["id"];
  const std::string cookie = log_in();
  for (std::int64_t i = 0; i < kTicketsPerLogin; ++i)
    EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}, cookie).status, 200u);
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}, cookie).status, 429u);
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}, log_in()).status, 200u)
      << "each log-in has its own";
  Database(database_in(folder_)).execute("UPDATE tickets SET expires_at = 5");
  EXPECT_EQ(post(port_, "/api/tickets", {{"machine", id}}, cookie).status, 200u);
  EXPECT_EQ(stored("SELECT count(*) FROM tickets"), std::multiset<std::string>{"1"});
}

TEST_F(ClusterTest, MachineAtTheOtherRelayCanBeDisconnected) {
  const auto agent = connect_to_other("Esja");
  const std::string id = wait_for_machine("Esja", "online")["id"];
  Browser viewer(other_->port());
  unsigned status = 0;
  const std::string cookie =
      post(other_->port(), "/api/login", {{"name", "admin"}, {"password", kPassword}}).cookie;
  ASSERT_TRUE(viewer.open_console(cookie, status)) << status;
  viewer.open_session(id);
  EXPECT_EQ(post(port_, "/api/machines/disconnect", {{"ids", {id}}}, log_in()).status, 200u);
  Json message;
  do {
    message = viewer.read_text("session");
  } while (message["state"] != "ended");
  EXPECT_EQ(message["reason"], "disconnected");
  EXPECT_TRUE(logged("an administrator decided: disconnected"));
}

TEST_F(ClusterTest, OtherRelaysAndTheirMachinesAreMetrics) {
  const auto shows = [&](const std::string& line) {
    const auto answer = ask_operators_port(server_->monitoring().port().value(), "/metrics");
    return answer.text.find("vantelink_relay_" + line + '\n') != std::string::npos;
  };
  const auto agent = connect_to_other("Esja");
  EXPECT_TRUE(shows("other_relays 1"));
  EXPECT_TRUE(shows("machines_elsewhere 1"));
  EXPECT_TRUE(shows("draining 0"));
  stop_other();
  EXPECT_TRUE(eventually([&] { return shows("other_relays 0") && shows("machines_elsewhere 0"); }));
  server_->drain();
  EXPECT_TRUE(eventually([&] { return shows("draining 1"); }));
}

TEST_F(ClusterTest, NewNameOfAMachineAtTheOtherRelayIsShown) {
  const auto agent = connect_to_other("Esja");
  agent->set_display_name("Hekla");
  wait_for_machine("Hekla", "online");
}

TEST_F(ClusterTest, MachineThatConnectsToTheOtherRelayIsCutFromThisOne) {
  const auto agent = connect_agent("Katla");
  agent::AgentConfig config = vantelink_fakes::saved_config();
  config.server_port = other_->port();
  agent::AgentClient second(config, {});
  second.start();
  EXPECT_TRUE(logged("the machine has connected to another relay"));
}

TEST_F(ClusterTest, MachineThatLeavesTheOtherRelayIsOffline) {
  connect_to_other("Esja")->stop();
  wait_for_machine("Esja", "offline");
}

TEST_F(ClusterTest, RelayThatStopsTakesItsMachinesOffTheList) {
  const auto agent = connect_to_other("Esja");
  stop_other();
  wait_for_machine("Esja", "offline");
}

TEST_F(ClusterTest, DrainedRelaySendsItsMachinesAway) {
  const auto agent = connect_to_other("Esja");
  other_->drain();
  EXPECT_TRUE(logged("drained: the last machines are moved away"));
}

// A relay that was killed writes nothing any more.
TEST_F(ClusterTest, DeadRelayIsRemovedWithItsMachinesAndItsSessionsEnd) {
  const auto agent = connect_agent("Hekla");
  const std::string id = wait_for_machine("Hekla", "online")["id"];
  agent->stop();
  wait_for_machine("Hekla", "offline");
  Database database(database_in(folder_));
  {
    Transaction transaction(database);
    const std::int64_t dead = join_relays(database, "dead", "https://dead.example");
    store_presence(database, dead, {id}, {});
    append_trail(database,
                 std::array{trail_entry<TrailKind::RelayStarted>({.actor = kTrailRelay}, "1", "dead"),
                            trail_entry<TrailKind::SessionAsked>({"ada", id, "10.0.0.1:1", 7}, "Hekla",
                                                                 std::nullopt, "dead")});
    transaction.commit();
  }
  wait_for_machine("Hekla", "online");
  database.execute("UPDATE relays SET heard_at = 5 WHERE name = 'dead'");
  wait_for_machine("Hekla", "offline");
  EXPECT_TRUE(logged("the relay \"dead\" is silent"));
  EXPECT_TRUE(eventually([&] {
    Statement ended(database, "SELECT 1 FROM trail WHERE code = 'session.ended' AND session = 7");
    return ended.step();
  }));
}

TEST_F(ClusterTest, MachineThatIsBlockedAtOneRelayIsCutFromTheOther) {
  const auto agent = connect_to_other("Esja");
  const std::string id = wait_for_machine("Esja", "online")["id"];
  const auto blocked = post(port_, "/api/machines/block", {{"ids", {id}}, {"reason", "stolen"}}, log_in());
  ASSERT_EQ(blocked.status, 200u) << blocked.text;
  EXPECT_TRUE(logged("an administrator decided: blocked"));
}

// A machine that is refused as unknown would forget its identity.
TEST_F(ClusterTest, MachineThatTheOtherRelayHasJustEnrolledIsKnown) {
  Database(database_in(folder_)).execute("ALTER TABLE machines DISABLE TRIGGER USER");  // no report arrives
  connect_agent("Katla")->stop();
  agent::AgentConfig config = vantelink_fakes::saved_config();
  ASSERT_FALSE(config.agent_id.empty());
  config.server_port = other_->port();
  agent::AgentClient client(config, {});
  client.start();
  EXPECT_TRUE(logged("agent=" + config.agent_id + " online as \"Katla\""));
  EXPECT_EQ(stored("SELECT count(*) FROM machines"), std::multiset<std::string>{"1"});
}

// The server's crash empties the tables of relays.
TEST_F(ClusterTest, RelayThatWasTakenForDeadEntersItselfAgain) {
  const auto agent = connect_to_other("Esja");
  Database(database_in(folder_)).execute("DELETE FROM relays");
  EXPECT_TRUE(logged("had taken this one for dead"));
  wait_for_machine("Esja", "online");
}

TEST_F(ClusterTest, RestartOfOneRelayLeavesTheSessionsOfTheOther) {
  const auto agent = connect_agent("Hekla");
  const std::string id = wait_for_machine("Hekla", "online")["id"];
  auto browser = console();
  EXPECT_NE(browser->open_session(id), 0u);
  stop_other();
  std::filesystem::remove_all(folder_ / "south");
  start_other();
  EXPECT_EQ(stored("SELECT count(*) FROM trail WHERE code = 'session.ended'"),
            std::multiset<std::string>{"0"});
}

TEST_F(ClusterTest, RelayWithAnotherKeyOfTheTrailIsRefused) {
  Server::Settings settings = other_settings();
  settings.data = folder_ / "west";
  settings.cluster.name = "west";
  std::filesystem::create_directory(settings.data);
  std::filesystem::permissions(settings.data, std::filesystem::perms::owner_all);
  EXPECT_THROW(Server(settings, std::make_unique<Store>(database_in(folder_)), *log_, limits_),
               std::runtime_error);
}

}  // namespace
}  // namespace vlk::relay
