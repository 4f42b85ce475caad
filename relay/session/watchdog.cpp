// Checks the time limits of all peers.
#include "relay/session/watchdog.h"

#include <string>

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace vlk::relay {

void Watchdog::tick(Clock::time_point now) {
  thread_.check();
  for (const auto& peer : machines_.connections())
    watch_agent(*peer, now);
  for (const auto& peer : browsers_.all())
    watch_browser(*peer, now);
  sessions_.end_unanswered(now);
  audit_.write_notes();
  if (now - last_seen_recorded_ >= limits_.last_seen) {
    last_seen_recorded_ = now;
    machines_.record_last_seen();
  }
  // The list is sent at most once in each tick, because all agents reconnect at once after a restart of the
  // relay.
  if (machines_.take_list_changed()) browsers_.send_list(machines_.list(sessions_.representatives()));
}

void Watchdog::watch_agent(AgentPeer& peer, Clock::time_point now) {
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
  if (now - peer.heartbeat_sent >= limits_.heartbeat) send_heartbeat(peer, now);
}

void Watchdog::send_heartbeat(AgentPeer& peer, Clock::time_point now) {
  peer.heartbeat_sent = now;
  peer.heartbeat_open = true;
  ++peer.heartbeat_number;
  peer.channel->send_binary(
      json_envelope(Msg::Heartbeat, 0, "{\"beat\":" + std::to_string(peer.heartbeat_number) + "}"));
}

void Watchdog::watch_browser(ConsolePeer& peer, Clock::time_point now) {
  Channel& channel = *peer.channel;
  if (channel.closing()) return;
  const auto stall = channel.write_stall(now);
  if (stall >= limits_.dead_browser) return channel.cut("does not read");
  if (stall >= limits_.slow_browser) sessions_.end_all_of(peer, "slow");
  watch_alive(peer, now);
  watch_idle(peer, now);
  watch_login(peer, now);
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

void Watchdog::watch_login(ConsolePeer& peer, Clock::time_point now) {
  if (now - peer.login_checked < limits_.login_check) return;
  peer.login_checked = now;
  try {
    if (!store_.login_user(peer.login)) peer.channel->close(CloseCode::PolicyViolation, "the log-in ended");
  } catch (const DatabaseError& failure) {
    log_.write(peer.address, "", failure.what());
  }
}

}  // namespace vlk::relay
