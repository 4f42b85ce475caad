// The enrolled machines, their connections, and the list of machines for browsers.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class MachinesTest : public PartsTest {
 protected:
  Json entry(const std::string& id, const std::map<std::string, std::string>& in_use = {}) {
    for (const Json& machine : parts_->machines.list(in_use)) {
      if (machine["id"] == id) return machine;
    }
    return {};
  }
};

TEST_F(MachinesTest, StoredMachineIsListedAsOfflineAfterARestart) {
  log_in("a");
  parts_ = std::make_unique<Parts>(store_, log_, limits_);
  const Json expected = {
      {"id", "a"},          {"name", "name of a"}, {"machine", "machine"},     {"os", "windows"},
      {"state", "offline"}, {"last_seen", 1},      {"round_trip_ms", nullptr}, {"representative", nullptr}};
  EXPECT_EQ(entry("a"), expected);
}

TEST_F(MachinesTest, StateOfAListedMachineIsOnlineSessionOrOffline) {
  const auto agent = log_in("a");
  EXPECT_EQ(entry("a")["state"], "online");
  EXPECT_EQ(entry("a", {{"a", "ada"}})["state"], "session");
  EXPECT_EQ(entry("a", {{"a", "ada"}})["representative"], "ada");
  parts_->machines.remove_connection(agent);
  EXPECT_EQ(entry("a")["state"], "offline");
  EXPECT_GT(entry("a")["last_seen"], 1);
  EXPECT_EQ(store_.agents().front().last_seen, entry("a")["last_seen"]);
}

TEST_F(MachinesTest, NewerConnectionOfAMachineReplacesItsOlderConnection) {
  const auto older = log_in("a");
  const auto newer = connect();
  EXPECT_EQ(parts_->machines.log_in(newer, *parts_->machines.find("a")), older);
  EXPECT_EQ(parts_->machines.connection("a"), newer);
  parts_->machines.remove_connection(older);
  EXPECT_EQ(parts_->machines.connection("a"), newer)
      << "removing the older connection must keep the newer one";
}

TEST_F(MachinesTest, NewNameOfAMachineIsStoredAndMarksTheListAsChangedOnce) {
  const auto agent = log_in("a");
  (void)parts_->machines.take_list_changed();
  parts_->machines.rename(*agent, "new");
  EXPECT_TRUE(parts_->machines.take_list_changed());
  parts_->machines.rename(*agent, "new");
  EXPECT_FALSE(parts_->machines.take_list_changed());
  EXPECT_EQ(store_.agents().front().name, "new");
  EXPECT_EQ(entry("a")["name"], "new");
}

TEST_F(MachinesTest, MachineKeepsItsOldNameIfTheNewNameCannotBeStored) {
  const auto agent = log_in("a");
  Database(file_).execute("DROP TABLE agents");
  parts_->machines.rename(*agent, "new");
  EXPECT_EQ(entry("a")["name"], "name of a");
  EXPECT_TRUE(logged("The database failed"));
}

TEST_F(MachinesTest, OnlyTheEchoOfTheLastHeartbeatMeasuresTheRoundTrip) {
  const auto agent = log_in("a");
  const auto start = Clock::now();
  agent->heartbeat_number = 5;
  agent->heartbeat_sent = start;
  const auto echo = [&](std::uint32_t number) {
    return parts_->machines.heartbeat_echo(*agent, number, start + std::chrono::milliseconds(40));
  };
  EXPECT_FALSE(echo(5)) << "no heartbeat waits for its echo";
  agent->heartbeat_open = true;
  EXPECT_FALSE(echo(4));
  EXPECT_TRUE(entry("a")["round_trip_ms"].is_null());
  EXPECT_TRUE(echo(5));
  EXPECT_EQ(entry("a")["round_trip_ms"], 40);
  EXPECT_FALSE(echo(5)) << "each heartbeat counts once";
}

TEST_F(MachinesTest, OnlyAnOfflineMachineCanBeForgotten) {
  const auto agent = log_in("a");
  EXPECT_EQ(parts_->machines.forget("b"), Machines::Forgotten::Unknown);
  EXPECT_EQ(parts_->machines.forget("a"), Machines::Forgotten::Connected);
  parts_->machines.remove_connection(agent);
  EXPECT_EQ(parts_->machines.forget("a"), Machines::Forgotten::Done);
  EXPECT_TRUE(entry("a").is_null());
  EXPECT_TRUE(store_.agents().empty());
}

TEST_F(MachinesTest, CuttingAllConnectionsIncludesConnectionsThatHaveNotLoggedIn) {
  const auto unknown = connect();
  const auto agent = log_in("a");
  parts_->machines.cut_connections("the relay stops");
  EXPECT_TRUE(unknown->channel->is_cut());
  EXPECT_TRUE(agent->channel->is_cut());
}

}  // namespace
}  // namespace vlk::relay
