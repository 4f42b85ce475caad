// The hub's clockwork: heartbeats, silence, unanswered requests, browsers that do not read, logins that
// ended.
#include <nlohmann/json.hpp>

#include "relay/session/hub.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

namespace websocket = boost::beast::websocket;

void Hub::tick() {
  const auto now = Clock::now();
  watch_agents(now);
  watch_consoles(now);
  watch_sessions(now);
  write_notes();
  if (now - last_seen_recorded_ >= limits_.last_seen) record_last_seen(now);
  if (!list_changed_) return;
  // Told once a tick at most: after a restart of the relay all agents return at the same moment.
  list_changed_ = false;
  for (const auto& console : consoles_)
    send_list(*console);
}

void Hub::watch_agents(Clock::time_point now) {
  for (const auto& peer : agents_)
    watch_agent(*peer, now);
}

void Hub::watch_agent(AgentPeer& peer, Clock::time_point now) {
  if (peer.socket->closing()) return;
  if (peer.refused) {
    if (now - peer.since >= limits_.refused_hold) peer.socket->close(websocket::policy_error, "refused");
    return;
  }
  if (peer.id.empty()) {
    if (now - peer.since >= limits_.handshake) peer.socket->cut("no log-in in time");
    return;
  }
  // An agent that is not read from cannot be heard.
  if (peer.paused) peer.socket->count_as_heard();
  if (now - peer.socket->last_heard() >= limits_.agent_silence)
    return peer.socket->cut("silent for too long");
  if (peer.socket->write_stall(now) >= limits_.agent_silence) return peer.socket->cut("does not read");
  if (now - peer.heartbeat_sent < limits_.heartbeat) return;
  peer.heartbeat_sent = now;
  peer.heartbeat_open = true;
  ++peer.heartbeat_number;
  peer.socket->send_binary(
      json_envelope(Msg::Heartbeat, 0, "{\"beat\":" + std::to_string(peer.heartbeat_number) + "}"));
}

void Hub::watch_consoles(Clock::time_point now) {
  for (const auto& peer : consoles_) {
    if (peer->socket->closing()) continue;
    const auto stall = peer->socket->write_stall(now);
    if (stall >= limits_.dead_browser) {
      peer->socket->cut("does not read");
      continue;
    }
    if (stall >= limits_.slow_browser) {
      std::vector<std::uint32_t> numbers;
      for (const auto& [number, session] : sessions_) {
        if (session.console == peer) numbers.push_back(number);
      }
      for (const std::uint32_t number : numbers)
        end_session(number, "slow", true);
    }
    watch_idle(*peer, now);
    watch_login(*peer, now);
  }
}

// Finds the browser whose machine fell asleep. One that is not read from cannot be heard.
void Hub::watch_idle(ConsolePeer& peer, Clock::time_point now) {
  if (peer.paused) peer.socket->count_as_heard();
  const auto silence = now - peer.socket->last_heard();
  if (silence >= limits_.idle_browser) return peer.socket->cut("answers no ping");
  if (silence >= limits_.browser_ping) peer.socket->ping();
}

void Hub::watch_login(ConsolePeer& peer, Clock::time_point now) {
  if (now - peer.login_checked < limits_.login_check) return;
  peer.login_checked = now;
  try {
    if (!store_.login_user(peer.login)) peer.socket->close(websocket::policy_error, "the login ended");
  } catch (const DatabaseError& failure) {
    log_.write(peer.address, "", failure.what());
  }
}

void Hub::watch_sessions(Clock::time_point now) {
  std::vector<std::uint32_t> unanswered;
  for (const auto& [number, session] : sessions_) {
    if (!session.accepted && now - session.asked >= limits_.consent) unanswered.push_back(number);
  }
  for (const std::uint32_t number : unanswered)
    end_session(number, "no-answer", true);
}

void Hub::record_last_seen(Clock::time_point now) {
  last_seen_recorded_ = now;
  std::vector<std::string> ids;
  for (const auto& entry : online_)
    ids.push_back(entry.first);
  if (ids.empty()) return;
  try {
    store_.touch_agents(ids, wall_seconds());
  } catch (const DatabaseError& failure) {
    log_.write("", "", failure.what());
  }
}

void Hub::cut_all() {
  for (const auto& peer : agents_)
    peer->socket->cut("the relay stops");
  for (const auto& peer : consoles_)
    peer->socket->close(websocket::going_away, "the relay stops");
}

}  // namespace vlk::relay
