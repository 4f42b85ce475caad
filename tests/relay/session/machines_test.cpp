// The enrolled machines, their connections, and the list of machines for browsers.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class MachinesTest : public PartsTest {
 protected:
  // The machine's entry in the list; null if the list does not have it.
  Json entry(const std::string& id) {
    for (const Json& machine : Json::parse(parts_->machines.list())) {
      if (machine["id"] == id) return machine;
    }
    return {};
  }
  Machines::Forgotten forget(const std::string& id) {
    return result_of(
        parts_->machines.forget(id, trail_entry<TrailKind::MachineForgotten>({.machine = id}, "name")));
  }
};

TEST_F(MachinesTest, StoredMachineIsListedAsOfflineAfterARestart) {
  log_in("a");
  restart();
  const Json expected = {{"id", "a"},
                         {"name", "name of a"},
                         {"machine", "machine"},
                         {"os", "windows"},
                         {"state", "offline"},
                         {"last_seen", 1},
                         {"round_trip_ms", nullptr},
                         {"representative", nullptr},
                         {"asked", false},
                         {"quarantine", nullptr},
                         {"others", 0}};
  EXPECT_EQ(entry("a"), expected);
}

TEST_F(MachinesTest, StateOfAListedMachineIsOnlineSessionOrOffline) {
  const auto agent = log_in("a");
  EXPECT_EQ(entry("a")["state"], "online");
  parts_->machines.set_representative("a", "ada");
  EXPECT_EQ(entry("a")["state"], "session");
  EXPECT_EQ(entry("a")["representative"], "ada");
  parts_->machines.set_representative("a", {});
  EXPECT_EQ(entry("a")["state"], "online");
  parts_->machines.remove_connection(agent);
  EXPECT_EQ(entry("a")["state"], "offline");
  EXPECT_GT(entry("a")["last_seen"], 1);
  EXPECT_EQ(stored_machines().front().last_seen, entry("a")["last_seen"]);
}

TEST_F(MachinesTest, MachinesInASessionAreCutLastAndInACallOfTheirOwn) {
  const auto used = log_in("a");
  const auto free = log_in("b");
  const auto further = log_in("c");
  parts_->machines.set_representative("a", "ada");
  EXPECT_EQ(parts_->machines.cut_some(1, "test"), 1u);
  EXPECT_TRUE(free->channel->closing());
  EXPECT_FALSE(used->channel->closing() || further->channel->closing());
  EXPECT_EQ(parts_->machines.cut_some(5, "test"), 1u);
  EXPECT_TRUE(further->channel->closing());
  EXPECT_FALSE(used->channel->closing());
  EXPECT_EQ(parts_->machines.cut_some(5, "test"), 1u);
  EXPECT_TRUE(used->channel->closing());
  EXPECT_EQ(parts_->machines.cut_some(5, "test"), 0u);
}

TEST_F(MachinesTest, NewerConnectionOfAMachineReplacesItsOlderConnection) {
  const auto older = log_in("a");
  const auto newer = connect();
  EXPECT_EQ(parts_->machines.log_in(newer, "a"), older);
  EXPECT_EQ(parts_->machines.connection("a"), newer);
  parts_->machines.remove_connection(older);
  EXPECT_EQ(parts_->machines.connection("a"), newer)
      << "removing the older connection must keep the newer one";
}

TEST_F(MachinesTest, NewNameOfAMachineIsStoredAndMarksItsEntryAsChangedOnce) {
  const auto agent = log_in("a");
  log_in("b");
  (void)parts_->machines.take_changed();
  parts_->machines.rename(*agent, "new");
  EXPECT_EQ(parts_->machines.take_changed(), std::set<std::string>{"a"});
  parts_->machines.rename(*agent, "new");
  EXPECT_EQ(parts_->machines.take_changed(), std::set<std::string>());
  EXPECT_EQ(stored_machines().front().name, "new");
  EXPECT_EQ(entry("a")["name"], "new");
}

TEST_F(MachinesTest, MachineKeepsItsOldNameIfTheNewNameCannotBeStored) {
  const auto agent = log_in("a");
  Database(file_).execute("DROP TABLE machines");
  parts_->machines.rename(*agent, "new");
  settle();
  EXPECT_EQ(entry("a")["name"], "name of a");
  EXPECT_TRUE(logged("the new name is not stored: "));
}

TEST_F(MachinesTest, EchoOfAHeartbeatMeasuresTheRoundTrip) {
  const auto agent = log_in("a");
  const auto start = Clock::now();
  const auto echo = [&](std::uint32_t number) {
    return parts_->machines.heartbeat_echo(*agent, number, start + std::chrono::milliseconds(40));
  };
  EXPECT_EQ(echo(1), std::nullopt) << "no heartbeat waits for its echo";
  EXPECT_EQ(agent->heartbeats.send(start), 1u);
  EXPECT_EQ(echo(2), std::nullopt);
  EXPECT_TRUE(entry("a")["round_trip_ms"].is_null());
  EXPECT_EQ(echo(1), start);
  EXPECT_EQ(entry("a")["round_trip_ms"], 40);
  EXPECT_EQ(echo(1), std::nullopt) << "each heartbeat counts once";
}

TEST_F(MachinesTest, OnlyAnOfflineMachineCanBeForgotten) {
  const auto agent = log_in("a");
  EXPECT_EQ(forget("b"), Machines::Forgotten::Unknown);
  EXPECT_EQ(forget("a"), Machines::Forgotten::Connected);
  parts_->machines.remove_connection(agent);
  EXPECT_EQ(forget("a"), Machines::Forgotten::Done);
  EXPECT_EQ(parts_->machines.take_changed(), std::set<std::string>{"a"});
  EXPECT_TRUE(entry("a").is_null());
  EXPECT_TRUE(stored_machines().empty());
}

TEST_F(MachinesTest, MachineThatLogsInWhileItIsForgottenIsDisconnected) {
  const auto older = log_in("a");
  parts_->machines.remove_connection(older);
  auto result = boost::asio::co_spawn(
      io_, parts_->machines.forget("a", trail_entry<TrailKind::MachineForgotten>({.machine = "a"}, "name")),
      boost::asio::use_future);
  io_.restart();
  io_.poll();
  const auto newer = log_in("a");
  settle();
  EXPECT_EQ(result.get(), Machines::Forgotten::Done);
  EXPECT_TRUE(newer->channel->is_cut());
  parts_->machines.remove_connection(newer);
  EXPECT_TRUE(entry("a").is_null());
}

TEST_F(MachinesTest, ChangeByAnotherProcessIsTakenOver) {
  const auto agent = log_in("a");
  log_in("b");
  parts_->machines.rename(*agent, "newer name");
  settle();
  Database(file_).execute("DELETE FROM machines WHERE id = 'b'; UPDATE machines SET state = 'blocked'");
  const auto removed = parts_->machines.connection("b");
  parts_->reload();
  io_.restart();
  io_.poll();
  settle();
  EXPECT_EQ(parts_->machines.find("a")->state, MachineState::Blocked);
  EXPECT_EQ(parts_->machines.find("a")->name, "newer name");
  EXPECT_EQ(parts_->machines.find("b"), nullptr);
  EXPECT_TRUE(removed->channel->is_cut());
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
