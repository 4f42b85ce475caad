// Who is connected, and the sessions between representatives and machines. The hub decides; the two kinds of
// links read from their sockets and ask it.
//
// Everything here runs on the relay's one thread, so nothing is locked. A peer is owned by its connection's
// coroutine and known to the hub from added to removed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/net/websocket_link.h"
#include "relay/session/transfers.h"
#include "relay/storage/store.h"

namespace vlk::relay {

// An agent's connection, logged in or not.
struct AgentPeer {
  std::shared_ptr<WebSocketLink> socket;
  std::string address;   // with port
  std::string id;        // empty until logged in
  bool refused = false;  // told so, and held back from dialling again for a while
  bool paused = false;   // not read from, because a browser is behind
  Clock::time_point since = Clock::now();
  Clock::time_point heartbeat_sent{};
  bool heartbeat_open = false;  // sent and not echoed yet
  std::uint32_t heartbeat_number = 0;
  std::optional<std::int64_t> round_trip_ms;
};

// A representative's browser.
struct ConsolePeer {
  std::shared_ptr<WebSocketLink> socket;
  std::string address;
  std::string representative;
  std::vector<std::uint8_t> login;  // hash of its token
  bool paused = false;              // not read from, because a machine or it itself is behind
  Clock::time_point login_checked = Clock::now();
};

struct Session {
  std::uint32_t number = 0;
  std::shared_ptr<AgentPeer> agent;
  std::shared_ptr<ConsolePeer> console;
  bool accepted = false;
  Clock::time_point asked = Clock::now();
};

class Hub {
 public:
  Hub(Store& store, const Log& log, const Limits& limits);
  ~Hub();
  Hub(const Hub&) = delete;
  Hub& operator=(const Hub&) = delete;

  // Agents. `online` makes the peer the connection of agent `record`; an older one is cut.
  void add_agent(const std::shared_ptr<AgentPeer>& peer);
  void online(const std::shared_ptr<AgentPeer>& peer, const AgentRecord& record);
  void remove_agent(const std::shared_ptr<AgentPeer>& peer);
  void renamed(AgentPeer& peer, const std::string& name);
  // As stored. The agent must have enrolled.
  const AgentRecord& record(const std::string& agent_id) const { return records_.at(agent_id); }
  void heartbeat_echo(AgentPeer& peer, std::uint32_t number);

  // Representatives' browsers.
  void add_console(const std::shared_ptr<ConsolePeer>& peer);
  void remove_console(const std::shared_ptr<ConsolePeer>& peer);
  // Closes the browsers of a login that ended.
  void end_login(const std::vector<std::uint8_t>& login);
  // Closes all browsers of a representative but those of one login.
  void end_other_logins(const std::string& representative, const std::vector<std::uint8_t>& login);

  // Sessions. Every refusal is told to the browser.
  void open_session(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id);
  void close_session(ConsolePeer& console, std::uint32_t number);
  void accepted(AgentPeer& peer, std::uint32_t number);
  void rejected(AgentPeer& peer, std::uint32_t number);
  // A number for a file transfer of the browser's session; `request` is the browser's own, which comes back.
  void give_transfer(ConsolePeer& console, std::uint32_t number, std::int64_t request);
  // Whether a message of an accepted session's browser may pass on to the machine; a refusal is told.
  bool admit(const Session& session, Msg type, Bytes& message);
  // Whether a machine's message is wanted by its session's browser.
  bool wanted(const Session& session, Msg type, const Bytes& message);
  // Null unless the session exists.
  Session* find(std::uint32_t number);
  // The relay's last measurement of the way to the agent of this browser's session, if it has one.
  std::optional<std::int64_t> round_trip(const ConsolePeer& console) const;

  nlohmann::json agents_json() const;
  enum class Forgotten { Done, Unknown, Connected };
  Forgotten forget_agent(const std::string& id);  // throws DatabaseError

  // To be called every Limits::tick: heartbeats and everything that ends by time.
  void tick();
  // Cuts every connection.
  void cut_all();

  // `fields` are further ones of the message, for programs to read.
  void error(ConsolePeer& console, const std::string& message, const std::string& agent,
             const nlohmann::json& fields);
  void error(ConsolePeer& console, const std::string& message, const std::string& agent = {});
  // Writes to the audit trail; a failure is logged and otherwise without effect.
  void audit(const AuditRecord& record);

 private:
  void end_session(std::uint32_t number, const std::string& reason, bool tell_agent);
  void end_sessions_of(const AgentPeer& peer, const std::string& reason);
  void end_transfers(const Session& session, bool tell_agent);
  void write_notes();
  void note_clip(const Session& session, const char* event, const Bytes& message);
  void note_event(const Session& session, const AuditNote& note);
  void tell_session(const Session& session, const std::string& state, const std::string& reason = {});
  const Session* session_of(const std::string& agent_id) const;
  std::uint32_t new_number();
  void send_list(ConsolePeer& console);
  void watch_agents(Clock::time_point now);
  void watch_agent(AgentPeer& peer, Clock::time_point now);
  void watch_consoles(Clock::time_point now);
  void watch_idle(ConsolePeer& peer, Clock::time_point now);
  void watch_login(ConsolePeer& peer, Clock::time_point now);
  void watch_sessions(Clock::time_point now);
  void record_last_seen(Clock::time_point now);

  Store& store_;
  const Log& log_;
  const Limits& limits_;
  std::map<std::string, AgentRecord> records_;  // all that have enrolled, by id; as stored
  std::set<std::shared_ptr<AgentPeer>> agents_;
  std::map<std::string, std::shared_ptr<AgentPeer>> online_;  // by id
  std::set<std::shared_ptr<ConsolePeer>> consoles_;
  std::map<std::uint32_t, Session> sessions_;
  std::uint32_t last_number_;
  Transfers transfers_;
  // Of files, which can come by the thousand: written together, at every tick.
  std::vector<AuditRecord> notes_;
  bool list_changed_ = false;
  Clock::time_point last_seen_recorded_ = Clock::now();
};

}  // namespace vlk::relay
