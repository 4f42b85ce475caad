// Time limits of peers, heartbeats and periodic writes. The tests pass the time to each tick.
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
    store_.add_user("ada", "hash");
    store_.add_login(peer->login, "ada", wall_seconds() + 3600);
    peer->channel->count_as_heard(start_);
    peer->login_checked = start_;
    (void)sent(*peer->channel);
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
  EXPECT_EQ(peer->heartbeat_sent, start_ + limits_.heartbeat);
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

TEST_F(WatchdogTest, SessionsOfABrowserThatDoesNotReadEndBeforeItsConnectionIsClosed) {
  const auto peer = browser();
  const auto machine = agent();
  const std::uint32_t session = accepted(peer, machine);
  peer->channel->send_text("waits");
  // The stall began between start_ and now.
  const auto begin = Clock::now() - start_;
  tick(limits_.slow_browser - kShort);
  EXPECT_NE(parts_->sessions.find(session), nullptr);
  tick(begin + limits_.slow_browser);
  EXPECT_EQ(parts_->sessions.find(session), nullptr);
  EXPECT_EQ(audited().back(), "session-end: " + std::to_string(session) + " slow");
  EXPECT_FALSE(peer->channel->closing());
  tick(begin + limits_.dead_browser);
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

TEST_F(WatchdogTest, BrowserIsDisconnectedAtTheNextLogInCheckAfterItsLogInEnded) {
  const auto peer = browser();
  peer->paused = true;
  tick_and_write(peer, limits_.login_check);
  EXPECT_FALSE(peer->channel->closing());
  store_.remove_login(peer->login);
  tick_and_write(peer, 2 * limits_.login_check - kShort);
  EXPECT_FALSE(peer->channel->closing()) << "the log-in was checked before its interval";
  tick(2 * limits_.login_check);
  EXPECT_EQ(peer->channel->end_reason(), "the log-in ended");
}

TEST_F(WatchdogTest, BrowserStaysConnectedWhenTheDatabaseFails) {
  const auto peer = browser();
  peer->paused = true;
  Database(file_).execute("DROP TABLE logins");
  tick(limits_.login_check);
  EXPECT_FALSE(peer->channel->closing());
  EXPECT_TRUE(logged("The database failed"));
}

TEST_F(WatchdogTest, UnansweredSessionRequestEndsAfterTheConsentLimit) {
  const auto peer = browser();
  const std::uint32_t session = ask(peer, agent());
  peer->paused = true;
  tick(Clock::now() - start_ + limits_.consent);
  EXPECT_EQ(audited().back(), "session-end: " + std::to_string(session) + " no-answer");
}

TEST_F(WatchdogTest, AuditNotesAreWrittenAtEachTick) {
  const auto peer = browser();
  const Session session{7, agent(), peer};
  parts_->audit.note(session, {"upload", "1 a"});
  EXPECT_EQ(audited(), Lines{});
  tick({});
  EXPECT_EQ(audited(), (Lines{"upload: 1 a"}));
}

TEST_F(WatchdogTest, LastSeenTimeOfConnectedMachinesIsStoredAtRegularIntervals) {
  const auto peer = agent();
  peer->paused = true;
  tick({});
  EXPECT_EQ(store_.agents().front().last_seen, 1);
  tick(2 * limits_.last_seen);
  EXPECT_GT(store_.agents().front().last_seen, 1);
}

TEST_F(WatchdogTest, ChangedListOfMachinesIsSentOnceAtTheNextTick) {
  const auto peer = browser();
  agent();
  EXPECT_EQ(sent(*peer->channel), Lines{});
  tick({});
  const Lines lines = sent(*peer->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines[0])["agents"][0]["state"], "online");
  tick({});
  EXPECT_EQ(sent(*peer->channel), Lines{});
}

}  // namespace
}  // namespace vlk::relay
