// Checks the time limits of all peers.
#include "relay/session/watch/watchdog.h"

#include <algorithm>
#include <optional>
#include <string>

#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

constexpr int kLooksInALimit = 8;  // at a machine without a session, within its shortest time limit
constexpr std::int64_t kMostRounds = 8;
// So many heartbeats to machines in a session are sent at once, and at least one to each sixteenth machine.
// About 32 groups are sent in a second.
constexpr std::size_t kHeartbeatsAtOnce = 16;
constexpr std::size_t kHeartbeatsShare = 16;

}  // namespace

void Watchdog::tick(Clock::time_point now) {
  thread_.check();
  const Agents in_session = agents_in_session();
  watch_agents_in_session(in_session, now);
  watch_idle_agents(in_session, now);
  for (const auto& peer : browsers_.all())
    watch_browser(*peer, now);
  sessions_.tick(now);
  quality_.tick(in_session, now, measures_.tick(now));
  logins_.tick(wall_seconds());
  record_use(now);
  // Changes of the list are sent once in each tick, because all agents reconnect at once after a restart of
  // the relay.
  browsers_.send_changes();
}

Watchdog::Agents Watchdog::agents_in_session() const {
  Agents agents;
  for (const auto& [number, session] : sessions_.all()) {
    if (session.running()) agents.insert(session.agent);
  }
  return agents;
}

void Watchdog::send_heartbeats(Clock::time_point now) {
  thread_.check();
  if (heartbeats_wait_) watch_agents_in_session(agents_in_session(), now);
}

// Begins after the machine that got the last heartbeat, so that none is left out when the groups come late.
void Watchdog::watch_agents_in_session(const Agents& agents, Clock::time_point now) {
  heartbeats_left_ = std::max(kHeartbeatsAtOnce, agents.size() / kHeartbeatsShare);
  heartbeats_wait_ = false;
  auto next = agents.upper_bound(last_greeted_);
  for (std::size_t left = agents.size(); left > 0; --left) {
    if (next == agents.end()) next = agents.begin();
    const std::shared_ptr<AgentPeer>& peer = *next++;
    const std::size_t before = heartbeats_left_;
    watch_agent(*peer, true, now);
    if (heartbeats_left_ != before) last_greeted_ = peer;
  }
}

// Stores when machines were seen and log-ins were used.
void Watchdog::record_use(Clock::time_point now) {
  if (now - use_recorded_ < limits_.last_seen) return;
  use_recorded_ = now;
  machines_.record_last_seen();
  auto used = logins_.take_used();
  if (used.empty()) return;
  const std::size_t bytes = used.size() * sizeof(decltype(used)::value_type);
  database_.post([used = std::move(used)](Store& store) { touch_logins(store.database(), used); },
                 [this](const std::string& failure) {
                   if (!failure.empty()) log_.write("", "", "the use of log-ins is not stored: " + failure);
                 },
                 bytes);
}

// Machines without a session are looked at in turn, since a look at ten thousand of them takes milliseconds.
// Their time limits are long.
void Watchdog::watch_idle_agents(const Agents& in_session, Clock::time_point now) {
  const auto& all = machines_.connections();
  const auto shortest =
      std::min({limits_.heartbeat, limits_.agent_silence, limits_.handshake, limits_.refused_hold});
  const auto rounds = std::clamp<std::int64_t>(shortest / (kLooksInALimit * limits_.tick), 1, kMostRounds);
  std::size_t left = (all.size() + static_cast<std::size_t>(rounds) - 1) / static_cast<std::size_t>(rounds);
  auto next = all.upper_bound(looked_at_);
  for (; left > 0; --left) {
    if (next == all.end()) next = all.begin();
    looked_at_ = *next++;
    if (!in_session.contains(looked_at_)) watch_agent(*looked_at_, false, now);
  }
}

void Watchdog::watch_agent(AgentPeer& peer, bool in_session, Clock::time_point now) {
  Channel& channel = *peer.channel;
  if (channel.closing()) return;
  if (peer.refused) {
    if (now - peer.since >= limits_.refused_hold) channel.close(CloseCode::PolicyViolation, "refused");
    return;
  }
  if (peer.id.empty()) {
    if (now - peer.since >= limits_.handshake) channel.cut("no log-in in time");
    return;
  }
  // While the relay does not read from an agent, the agent does not count as silent.
  if (peer.paused) channel.count_as_heard(now);
  if (now - channel.last_heard() >= limits_.agent_silence) return channel.cut("silent for too long");
  if (channel.write_stall(now) >= limits_.agent_silence) return channel.cut("does not read");
  const auto often = in_session ? std::optional<Clock::duration>(limits_.session_heartbeat) : std::nullopt;
  if (!peer.heartbeats.due(now, limits_.heartbeat, often)) return;
  // A machine that is due for longer than the others of a session is not held back: its silence would count.
  if (in_session && heartbeats_left_ == 0 && !peer.heartbeats.due(now, limits_.heartbeat, std::nullopt)) {
    heartbeats_wait_ = true;
    return;
  }
  if (in_session && heartbeats_left_ > 0) --heartbeats_left_;
  send_heartbeat(peer, now);
}

void Watchdog::send_heartbeat(AgentPeer& peer, Clock::time_point now) {
  const std::uint32_t number = peer.heartbeats.send(now, peer.channel->overtakes_nothing_before(now));
  peer.channel->send_binary(json_envelope(Msg::Heartbeat, 0, "{\"beat\":" + std::to_string(number) + "}"));
}

void Watchdog::watch_browser(ConsolePeer& peer, Clock::time_point now) {
  Channel& channel = *peer.channel;
  if (channel.closing()) return;
  if (channel.write_stall(now) >= limits_.slow_browser) return channel.cut("does not read");
  watch_alive(peer, now);
  watch_idle(peer, now);
}

// While a long message of the browser arrives, or waits for a slow machine, the relay cannot read the
// browser's pings behind it. The browser must not take the relay for dead then.
void Watchdog::watch_alive(ConsolePeer& peer, Clock::time_point now) {
  Channel& channel = *peer.channel;
  if (channel.idle() && now - channel.last_sent() >= limits_.browser_alive)
    channel.send_text(R"({"type":"alive"})");
}

// Finds browsers whose computer is asleep or disconnected. While the relay does not read from a browser, the
// browser does not count as silent.
void Watchdog::watch_idle(ConsolePeer& peer, Clock::time_point now) {
  Channel& channel = *peer.channel;
  if (peer.paused) channel.count_as_heard(now);
  const auto silence = now - channel.last_heard();
  if (silence >= limits_.idle_browser) return channel.cut("does not answer pings");
  if (silence >= limits_.browser_ping) channel.ping(now);
}

}  // namespace vlk::relay
