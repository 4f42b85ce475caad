// Time limits of peers, heartbeats and periodic writes. The tests pass the time to each tick.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;

class WatchdogTest : public PartsTest {
 protected:
  void tick(Clock::duration after) { parts_->watchdog.tick(start_ + after); }
  // A tick after which everything that was sent to the browser is written.
  void tick_and_write(const Console& peer, Clock::duration after) {
    tick(after);
    (void)sent(*peer->channel);
  }
  Lines to_agent(const Agent& agent) { return sent(*agent->channel); }

  Agent agent() {
    auto peer = log_in("a");
    peer->channel->count_as_heard(start_);
    peer->since = start_;
    return peer;
  }
  Console browser() {
    auto peer = browse("ada");
    parts_->logins.add({.token_hash = peer->login, .person = 1, .expires_at = wall_seconds() + 3600});
    peer->channel->count_as_heard(start_);
    (void)sent(*peer->channel);
    (void)parts_->machines.take_changed();
    return peer;
  }

  const Clock::time_point start_ = Clock::now();
  static constexpr milliseconds kShort{1};
};

TEST_F(WatchdogTest, HeartbeatsAreSentAtTheHeartbeatInterval) {
  const auto peer = agent();
  tick({});
  EXPECT_EQ(to_agent(peer), (Lines{R"(4/0 {"beat":1})"}));
  tick(limits_.heartbeat - kShort);
  EXPECT_EQ(to_agent(peer), Lines{});
  tick(limits_.heartbeat);
  EXPECT_EQ(to_agent(peer), (Lines{R"(4/0 {"beat":2})"}));
}

TEST_F(WatchdogTest, MachineWithARunningSessionGetsAHeartbeatEachSecond) {
  const auto peer = agent();
  const auto echo = [&](std::uint32_t number, Clock::duration after) {
    return parts_->machines.heartbeat_echo(*peer, number, start_ + after).has_value();
  };
  tick({});
  ASSERT_TRUE(echo(1, kShort));
  const auto viewer = browser();
  const std::uint32_t session = ask(viewer, peer);
  (void)to_agent(peer);
  tick(limits_.session_heartbeat);
  EXPECT_EQ(to_agent(peer), Lines{}) << "the machine has not accepted yet";
  parts_->sessions.accept(*peer, session);
  tick(limits_.session_heartbeat);
  EXPECT_EQ(to_agent(peer), (Lines{R"(4/0 {"beat":2})"}));
  tick(2 * limits_.session_heartbeat);
  EXPECT_EQ(to_agent(peer), Lines{}) << "the echo is missing";
  ASSERT_TRUE(echo(2, 2 * limits_.session_heartbeat));
  parts_->sessions.close(*viewer, session);
  (void)to_agent(peer);
  tick(10 * limits_.session_heartbeat);
  EXPECT_EQ(to_agent(peer), Lines{}) << "the session has ended";
}

TEST_F(WatchdogTest, HeartbeatsOfManySessionsAreSentInSeveralGroups) {
  std::vector<Agent> machines;
  for (int i = 0; i < 40; ++i) {
    machines.push_back(log_in(std::to_string(i)));
    const auto viewer = browse("person " + std::to_string(i / 10));
    parts_->sessions.accept(*machines.back(), ask(viewer, machines.back()));
  }
  const auto greeted = [&](Clock::time_point now) {
    std::set<std::string> ids;
    for (const auto& peer : machines) {
      const Lines messages = to_agent(peer);
      if (std::ranges::none_of(messages, [](const auto& text) { return text.starts_with("4/"); })) continue;
      ids.insert(peer->id);
      for (const std::uint32_t number : {1u, 2u, 3u})
        (void)parts_->machines.heartbeat_echo(*peer, number, now + kShort);
    }
    return ids;
  };
  tick({});
  EXPECT_EQ(greeted(start_).size(), 40u) << "the first heartbeat is not held back";
  std::set<std::string> all;
  auto now = start_ + limits_.session_heartbeat + kShort;
  parts_->watchdog.tick(now);
  for (int group = 0; group < 3; ++group) {
    const auto ids = greeted(now);
    EXPECT_EQ(ids.size(), 16u);
    all.insert(ids.begin(), ids.end());
    EXPECT_TRUE(parts_->watchdog.heartbeats_wait());
    now += 2 * limits_.session_heartbeat;  // so late that the first ones are due again
    parts_->watchdog.send_heartbeats(now);
  }
  EXPECT_EQ(all.size(), 40u) << "none is left out";
}

TEST_F(WatchdogTest, SilentAgentIsDisconnected) {
  const auto peer = agent();
  tick(limits_.agent_silence - kShort);
  (void)to_agent(peer);
  EXPECT_FALSE(peer->channel->closing());
  tick(limits_.agent_silence);
  EXPECT_TRUE(peer->channel->is_cut());
  EXPECT_EQ(peer->channel->end_reason(), "silent for too long");
}

TEST_F(WatchdogTest, MachinesWithoutASessionAreLookedAtInTurnAndNoneIsLeftOut) {
  constexpr int kMachines = 23;
  constexpr int kRounds = 5;  // of ticks, with the default limits
  std::vector<Agent> machines;
  for (int i = 0; i < kMachines; ++i)
    machines.push_back(log_in(std::to_string(i)));
  const auto greeted = [&] {
    return std::ranges::count_if(machines, [&](const Agent& peer) {
      return !to_agent(peer).empty();  // its first heartbeat
    });
  };
  for (const Agent& peer : machines)
    (void)to_agent(peer);
  tick({});
  EXPECT_EQ(greeted(), (kMachines + kRounds - 1) / kRounds);
  std::ptrdiff_t later = 0;
  for (int round = 1; round < kRounds; ++round) {
    tick({});
    later += greeted();
  }
  EXPECT_EQ(later, kMachines - (kMachines + kRounds - 1) / kRounds) << "each once";
  parts_->machines.remove_connection(machines.front());
  machines.erase(machines.begin());
  for (int round = 0; round < kRounds; ++round)
    tick(limits_.agent_silence * 2);
  for (const Agent& peer : machines)
    EXPECT_TRUE(peer->channel->is_cut());
}

TEST_F(WatchdogTest, AgentThatTheRelayDoesNotReadFromDoesNotCountAsSilent) {
  const auto peer = agent();
  peer->paused = true;
  tick(limits_.agent_silence);
  EXPECT_FALSE(peer->channel->closing());
}

TEST_F(WatchdogTest, AgentThatDoesNotReadIsDisconnected) {
  const auto peer = agent();
  peer->channel->send_text("waits");
  peer->channel->count_as_heard(start_ + 2 * limits_.agent_silence);
  tick(2 * limits_.agent_silence);
  EXPECT_EQ(peer->channel->end_reason(), "does not read");
}

TEST_F(WatchdogTest, ConnectionWithoutALogInIsClosedAfterTheHandshakeLimit) {
  const auto peer = connect();
  peer->since = start_;
  tick(limits_.handshake - kShort);
  EXPECT_FALSE(peer->channel->closing());
  tick(limits_.handshake);
  EXPECT_EQ(peer->channel->end_reason(), "no log-in in time");
}

TEST_F(WatchdogTest, ConnectionOfARefusedAgentIsClosedAfterTheDelay) {
  const auto peer = connect();
  peer->since = start_;
  peer->refused = true;
  tick(limits_.refused_hold - kShort);
  EXPECT_FALSE(peer->channel->closing());
  tick(limits_.refused_hold);
  ASSERT_TRUE(peer->channel->close_request());
  EXPECT_EQ(peer->channel->close_request()->code, CloseCode::PolicyViolation);
}

TEST_F(WatchdogTest, BrowserThatDoesNotReadIsDisconnected) {
  const auto peer = browser();
  peer->channel->send_text("waits");
  // The stall began between start_ and now.
  const auto begin = Clock::now() - start_;
  tick(limits_.slow_browser - kShort);
  EXPECT_FALSE(peer->channel->closing());
  tick(begin + limits_.slow_browser);
  EXPECT_EQ(peer->channel->end_reason(), "does not read");
}

TEST_F(WatchdogTest, BrowserToWhichNothingIsSentGetsAnAliveMessage) {
  const auto peer = browser();
  peer->paused = true;  // a long message of the browser waits for a slow machine
  const auto sent_at = Clock::now() - start_;
  tick(limits_.browser_alive - kShort);
  EXPECT_EQ(sent(*peer->channel), Lines{});
  tick(sent_at + limits_.browser_alive);
  EXPECT_EQ(sent(*peer->channel), (Lines{R"({"type":"alive"})"}));
}

TEST_F(WatchdogTest, NoAliveMessageIsQueuedWhileAnotherMessageIsWritten) {
  const auto peer = browser();
  peer->channel->send_text("waits");
  tick(Clock::now() - start_ + limits_.browser_alive);
  EXPECT_EQ(sent(*peer->channel), (Lines{"waits"}));
}

TEST_F(WatchdogTest, SilentBrowserIsPingedOnceAndThenDisconnected) {
  const auto peer = browser();
  tick_and_write(peer, limits_.browser_ping - kShort);
  EXPECT_FALSE(peer->channel->ping_requested());
  tick_and_write(peer, limits_.browser_ping);
  EXPECT_TRUE(peer->channel->ping_requested());
  peer->channel->ping_sent();
  tick_and_write(peer, limits_.browser_ping + kShort);
  EXPECT_FALSE(peer->channel->ping_requested()) << "the first ping has not been answered yet";
  tick(limits_.idle_browser);
  EXPECT_EQ(peer->channel->end_reason(), "does not answer pings");
}

TEST_F(WatchdogTest, BrowserThatAnsweredAPingIsPingedAgain) {
  const auto peer = browser();
  tick_and_write(peer, limits_.browser_ping);
  peer->channel->ping_sent();
  peer->channel->count_as_heard(start_ + limits_.browser_ping + kShort);
  tick(2 * limits_.browser_ping + kShort);
  EXPECT_TRUE(peer->channel->ping_requested());
}

TEST_F(WatchdogTest, BrowserThatTheRelayDoesNotReadFromDoesNotCountAsSilent) {
  const auto peer = browser();
  peer->paused = true;
  tick(limits_.idle_browser);
  EXPECT_FALSE(peer->channel->closing());
}

TEST_F(WatchdogTest, BrowserIsDisconnectedAfterTheTimeOfItsLogInIsOver) {
  const auto peer = browser();
  tick({});
  EXPECT_FALSE(peer->channel->closing());
  parts_->logins.end(peer->login, "logged out");
  EXPECT_EQ(peer->channel->end_reason(), "logged out");
  const auto late = browser();
  parts_->logins.add({.token_hash = late->login, .person = 1, .expires_at = wall_seconds()});
  (void)sent(*late->channel);
  tick({});
  EXPECT_FALSE(late->channel->closing()) << "the browser is warned a minute before";
  EXPECT_EQ(sent(*late->channel), Lines{R"({"seconds":60,"type":"login-ends"})"});
  parts_->logins.tick(wall_seconds() + 61);
  EXPECT_EQ(late->channel->end_reason(), "the log-in ended");
}

TEST_F(WatchdogTest, UseOfLogInsIsStoredAtRegularIntervals) {
  const auto peer = browser();
  database_.run_and_wait([&](Store& store) {
    (void)add_person(store.database(), {.name = "ada"});
    add_login(store.database(),
              {.token_hash = peer->login, .person = 1, .expires_at = wall_seconds() + 3600});
  });
  restart();
  const std::int64_t now = wall_seconds();
  parts_->logins.use(peer->login, now);
  tick(2 * limits_.last_seen);
  settle();
  Database database(file_);
  EXPECT_GE(load_logins(database).front().last_used, now);
}

TEST_F(WatchdogTest, UnansweredSessionRequestEndsAfterTheConsentLimit) {
  const auto peer = browser();
  const std::uint32_t session = ask(peer, agent());
  peer->paused = true;
  tick(Clock::now() - start_ + limits_.consent);
  EXPECT_EQ(audited().back().find("session.ended/" + std::to_string(session) + R"( {"reason":"no-answer")"),
            0u);
}

TEST_F(WatchdogTest, LastSeenTimeOfConnectedMachinesIsStoredAtRegularIntervals) {
  const auto peer = agent();
  peer->paused = true;
  tick({});
  EXPECT_EQ(stored_machines().front().last_seen, 1);
  tick(2 * limits_.last_seen);
  EXPECT_GT(stored_machines().front().last_seen, 1);
}

TEST_F(WatchdogTest, ChangeOfTheListOfMachinesIsSentOnceAtTheNextTick) {
  const auto peer = browser();
  agent();
  EXPECT_EQ(sent(*peer->channel), Lines{});
  tick({});
  const Lines lines = sent(*peer->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines[0])["changed"][0]["state"], "online");
  tick({});
  EXPECT_EQ(sent(*peer->channel), Lines{});
}

}  // namespace
}  // namespace vlk::relay
