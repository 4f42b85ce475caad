// Who is connected, and the sessions between representatives and machines. What ends by time is in
// hub_watch.cpp.
#include "relay/session/hub.h"

#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

constexpr std::uint32_t kListTag = 0xFFFFFFFF;  // the one message of which only the newest matters

}  // namespace

// Numbers start anywhere, so that one from before a restart of the relay hardly ever means another session
// now.
Hub::Hub(Store& store, const Log& log, const Limits& limits)
    : store_(store), log_(log), limits_(limits), last_number_(random_number()), transfers_(random_number()) {
  for (AgentRecord& record : store_.agents())
    records_[record.id] = std::move(record);
}

Hub::~Hub() {
  write_notes();
}

void Hub::audit(const AuditRecord& record) {
  try {
    store_.audit({record});
  } catch (const DatabaseError& failure) {
    log_.write(record.address, record.agent,
               "audit record \"" + record.event + "\" is lost: " + failure.what());
  }
}

void Hub::add_agent(const std::shared_ptr<AgentPeer>& peer) {
  agents_.insert(peer);
}

void Hub::online(const std::shared_ptr<AgentPeer>& peer, const AgentRecord& record) {
  // The older connection is most often one that died without a word, so the newest wins.
  if (const auto old = online_.find(record.id); old != online_.end()) {
    const auto loser = old->second;
    log_.write(loser->address, record.id, "replaced by a newer log-in from " + peer->address);
    end_sessions_of(*loser, "replaced");
    online_.erase(old);
    loser->socket->cut("replaced by a newer log-in");
  }
  peer->id = record.id;
  records_[record.id] = record;
  online_[record.id] = peer;
  list_changed_ = true;
  for (const std::uint32_t upload : transfers_.owed(record.id, Clock::now()))
    peer->socket->send_binary(upload_end(0, upload));
  log_.write(peer->address, peer->id, "online as \"" + record.name + "\"");
  audit({"agent-login", "", peer->id, peer->address, record.name});
}

void Hub::remove_agent(const std::shared_ptr<AgentPeer>& peer) {
  agents_.erase(peer);
  log_.write(peer->address, peer->id, "agent's connection over: " + peer->socket->end_reason());
  const auto found = online_.find(peer->id);
  if (found == online_.end() || found->second != peer) return;
  end_sessions_of(*peer, "agent-gone");
  online_.erase(found);
  list_changed_ = true;
  AgentRecord& record = records_[peer->id];
  record.last_seen = wall_seconds();
  try {
    store_.touch_agents({peer->id}, record.last_seen);
  } catch (const DatabaseError& failure) {
    log_.write(peer->address, peer->id, failure.what());
  }
}

void Hub::renamed(AgentPeer& peer, const std::string& name) {
  AgentRecord& record = records_[peer.id];
  if (record.name == name) return;
  record.name = name;
  list_changed_ = true;
  log_.write(peer.address, peer.id, "renamed to \"" + name + "\"");
}

void Hub::heartbeat_echo(AgentPeer& peer, std::uint32_t number) {
  if (!peer.heartbeat_open || number != peer.heartbeat_number) return;
  peer.heartbeat_open = false;
  transfers_.settle(peer.id, peer.heartbeat_sent);
  if (!peer.round_trip_ms) list_changed_ = true;
  peer.round_trip_ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - peer.heartbeat_sent).count();
}

void Hub::add_console(const std::shared_ptr<ConsolePeer>& peer) {
  consoles_.insert(peer);
  log_.write(peer->address, "", "console of " + peer->representative + " connected");
  send_list(*peer);
}

void Hub::remove_console(const std::shared_ptr<ConsolePeer>& peer) {
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions_) {
    if (session.console == peer) numbers.push_back(number);
  }
  for (const std::uint32_t number : numbers)
    end_session(number, "browser-gone", true);
  consoles_.erase(peer);
  log_.write(peer->address, "",
             "console of " + peer->representative + " disconnected: " + peer->socket->end_reason());
}

void Hub::end_login(const std::vector<std::uint8_t>& login) {
  for (const auto& peer : consoles_) {
    if (peer->login == login) peer->socket->close(boost::beast::websocket::policy_error, "the login ended");
  }
}

void Hub::end_other_logins(const std::string& representative, const std::vector<std::uint8_t>& login) {
  for (const auto& peer : consoles_) {
    if (peer->representative != representative || peer->login == login) continue;
    peer->socket->close(boost::beast::websocket::policy_error, "the password was changed");
  }
}

std::uint32_t Hub::new_number() {
  // A session's number is also its messages' tag, so the list's tag is left out.
  do {
    ++last_number_;
  } while (last_number_ == 0 || last_number_ == kListTag);
  return last_number_;
}

void Hub::open_session(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id) {
  const auto record = records_.find(agent_id);
  if (record == records_.end())
    return error(*console, "There is no such machine.", agent_id, {{"code", "unknown"}});
  const std::string& name = record->second.name;
  const auto online = online_.find(agent_id);
  if (online == online_.end())
    return error(*console, "\"" + name + "\" is offline.", agent_id, {{"code", "offline"}});
  if (const Session* other = session_of(agent_id)) {
    const std::string& who = other->console->representative;
    return error(*console, "\"" + name + "\" is in use by " + who + ".", agent_id,
                 {{"code", "in-use"}, {"representative", who}});
  }
  std::size_t own = 0;
  for (const auto& entry : sessions_)
    own += entry.second.console == console;
  if (own >= limits_.sessions_per_browser)
    return error(*console, "Too many sessions in one browser.", agent_id, {{"code", "too-many"}});

  const Session session{new_number(), online->second, console};
  sessions_[session.number] = session;
  list_changed_ = true;
  session.agent->socket->send_binary(json_envelope(
      Msg::SessionRequest, session.number, dump(nlohmann::json{{"rep_name", console->representative}})));
  tell_session(session, "waiting");
  log_.write(console->address, agent_id,
             "session " + std::to_string(session.number) + " requested by " + console->representative);
  audit({"session-request", console->representative, agent_id, console->address,
         std::to_string(session.number)});
}

void Hub::close_session(ConsolePeer& console, std::uint32_t number) {
  const Session* session = find(number);
  if (!session || session->console.get() != &console) return error(console, "There is no such session.");
  end_session(number, "closed", true);
}

void Hub::accepted(AgentPeer& peer, std::uint32_t number) {
  Session* session = find(number);
  if (!session || session->agent.get() != &peer) {
    log_.write(peer.address, peer.id,
               "accepted session " + std::to_string(number) + ", which nobody waits for");
    return;
  }
  if (session->accepted) return;
  session->accepted = true;
  tell_session(*session, "accepted");
  log_.write(peer.address, peer.id, "session " + std::to_string(number) + " accepted");
  audit({"session-start", session->console->representative, peer.id, session->console->address,
         std::to_string(number)});
}

void Hub::rejected(AgentPeer& peer, std::uint32_t number) {
  const Session* session = find(number);
  if (!session || session->agent.get() != &peer || session->accepted) {
    log_.write(peer.address, peer.id,
               "rejected session " + std::to_string(number) + ", which is not waiting");
    return;
  }
  end_session(number, "declined", false);
}

Session* Hub::find(std::uint32_t number) {
  const auto found = sessions_.find(number);
  return found == sessions_.end() ? nullptr : &found->second;
}

const Session* Hub::session_of(const std::string& agent_id) const {
  for (const auto& entry : sessions_) {
    if (entry.second.agent->id == agent_id) return &entry.second;
  }
  return nullptr;
}

std::optional<std::int64_t> Hub::round_trip(const ConsolePeer& console) const {
  for (const auto& entry : sessions_) {
    const Session& session = entry.second;
    if (session.console.get() == &console && session.accepted) return session.agent->round_trip_ms;
  }
  return std::nullopt;
}

void Hub::end_session(std::uint32_t number, const std::string& reason, bool tell_agent) {
  const auto found = sessions_.find(number);
  if (found == sessions_.end()) return;
  const Session session = found->second;
  sessions_.erase(found);
  list_changed_ = true;
  // Pictures of a session that is over are of no use to a browser that is behind.
  session.console->socket->discard(number);
  tell_session(session, "ended", reason);
  end_transfers(session, tell_agent);
  if (tell_agent) session.agent->socket->send_binary(json_envelope(Msg::SessionEnd, number, "{}"));
  log_.write(session.console->address, session.agent->id,
             "session " + std::to_string(number) + " ended: " + reason);
  audit({"session-end", session.console->representative, session.agent->id, session.console->address,
         std::to_string(number) + " " + reason});
}

void Hub::end_sessions_of(const AgentPeer& peer, const std::string& reason) {
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions_) {
    if (session.agent.get() == &peer) numbers.push_back(number);
  }
  for (const std::uint32_t number : numbers)
    end_session(number, reason, false);
}

void Hub::tell_session(const Session& session, const std::string& state, const std::string& reason) {
  nlohmann::json message = {
      {"type", "session"}, {"session", session.number}, {"agent", session.agent->id}, {"state", state}};
  if (!reason.empty()) message["reason"] = reason;
  session.console->socket->send_text(dump(message));
}

void Hub::error(ConsolePeer& console, const std::string& message, const std::string& agent) {
  error(console, message, agent, nlohmann::json::object());
}

void Hub::error(ConsolePeer& console, const std::string& message, const std::string& agent,
                const nlohmann::json& fields) {
  log_.write(console.address, agent, "refused to " + console.representative + ": " + message);
  nlohmann::json reply = {{"type", "error"}, {"message", message}};
  if (!agent.empty()) reply["agent"] = agent;
  reply.update(fields);
  console.socket->send_text(dump(reply));
}

nlohmann::json Hub::agents_json() const {
  std::map<std::string, const Session*> in_session;
  for (const auto& entry : sessions_)
    in_session[entry.second.agent->id] = &entry.second;
  nlohmann::json list = nlohmann::json::array();
  for (const auto& [id, record] : records_) {
    const auto online = online_.find(id);
    const auto session = in_session.find(id);
    const bool is_online = online != online_.end();
    const bool has_session = session != in_session.end();
    nlohmann::json agent = {{"id", id},
                            {"name", record.name},
                            {"machine", record.machine},
                            {"os", record.os},
                            {"state", has_session ? "session"
                                      : is_online ? "online"
                                                  : "offline"},
                            {"last_seen", is_online ? wall_seconds() : record.last_seen},
                            {"round_trip_ms", nullptr},
                            {"representative", nullptr}};
    if (is_online && online->second->round_trip_ms) agent["round_trip_ms"] = *online->second->round_trip_ms;
    if (has_session) agent["representative"] = session->second->console->representative;
    list.push_back(std::move(agent));
  }
  return list;
}

void Hub::send_list(ConsolePeer& console) {
  console.socket->discard(kListTag);
  console.socket->send_text(dump(nlohmann::json{{"type", "agents"}, {"agents", agents_json()}}), kListTag);
}

Hub::Forgotten Hub::forget_agent(const std::string& id) {
  if (!records_.contains(id)) return Forgotten::Unknown;
  if (online_.contains(id)) return Forgotten::Connected;
  store_.remove_agent(id);
  records_.erase(id);
  transfers_.settle(id, Clock::time_point::max());
  list_changed_ = true;
  return Forgotten::Done;
}

}  // namespace vlk::relay
