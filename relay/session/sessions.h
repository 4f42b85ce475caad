// The sessions of representatives with machines. A session is requested, may be accepted, and ends.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/rate_counter.h"
#include "relay/base/thread_checker.h"
#include "relay/session/audit_trail.h"
#include "relay/session/browsers.h"
#include "relay/session/machines.h"
#include "relay/session/peers.h"
#include "relay/session/transfers.h"

namespace vlk::relay {

// An event that changes a session's state. An End is caused by the browser, by the end of a connection or by
// a time limit.
enum class SessionEvent { Accept, Reject, End };

struct SessionTransition {
  SessionState from;
  SessionEvent event;
  SessionState to;
};

// All transitions of a session's state. An event that is not listed for a state is ignored.
inline constexpr SessionTransition kSessionTransitions[] = {
    {SessionState::Asked, SessionEvent::Accept, SessionState::Accepted},
    {SessionState::Asked, SessionEvent::Reject, SessionState::Ended},
    {SessionState::Asked, SessionEvent::End, SessionState::Ended},
    {SessionState::Accepted, SessionEvent::End, SessionState::Ended},
};

[[nodiscard]] constexpr std::optional<SessionState> next_state(SessionState from, SessionEvent event) {
  for (const SessionTransition& transition : kSessionTransitions) {
    if (transition.from == from && transition.event == event) return transition.to;
  }
  return std::nullopt;
}

// Carries out each transition: sends messages to the browser and the machine, and writes a row to the audit
// trail. Used on the relay's one thread.
class Sessions {
 public:
  // The arguments outlive this object. The first session gets the number after `start`.
  Sessions(Machines& machines, Browsers& browsers, Transfers& transfers, AuditTrail& audit, const Log& log,
           const Limits& limits, std::uint32_t start);

  // Requests a session from the machine. If the relay refuses, for instance because the machine is offline,
  // the browser receives an error message.
  void open(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id);
  // Ends a session of this browser. If the browser has no session with this number, it receives an error
  // message.
  void close(ConsolePeer& console, std::uint32_t number);
  // Closes the connection of the machine in an accepted session of this browser, which ends the session. A
  // machine cannot be asked to stop what it sends, for instance a download. If the relay refuses, the browser
  // receives an error message.
  void cut(ConsolePeer& console, std::uint32_t number);
  // Carry out the machine's answer to the request for a session.
  void accept(AgentPeer& peer, std::uint32_t number);
  void reject(AgentPeer& peer, std::uint32_t number);

  // End all sessions of a machine, all sessions of a browser, or all requests that nobody answered in time.
  void end_all_of(const AgentPeer& peer, const std::string& reason);
  void end_all_of(const ConsolePeer& peer, const std::string& reason);
  void end_unanswered(Clock::time_point now);

  // The session with this number, or null.
  [[nodiscard]] const Session* find(std::uint32_t number) const;
  // The representative of each machine that is in a session, by the machine's id.
  [[nodiscard]] std::map<std::string, std::string> representatives() const;
  // The relay's last measurement of the round trip to the machine of this browser's accepted session, in ms.
  [[nodiscard]] std::optional<std::int64_t> round_trip(const ConsolePeer& console) const;

 private:
  enum class Tell { BrowserOnly, MachineToo };
  void end(std::uint32_t number, SessionEvent event, const std::string& reason, Tell tell);
  void end_transfers(const Session& session, Tell tell);
  void tell_browser(const Session& session, const std::string& state, const std::string& reason = {});
  [[nodiscard]] static bool apply(Session& session, SessionEvent event);
  [[nodiscard]] Session* find_of(const AgentPeer& peer, std::uint32_t number);
  [[nodiscard]] const Session* session_with(const std::string& agent_id) const;
  template <class Condition>
  [[nodiscard]] std::vector<std::uint32_t> numbers_where(Condition condition) const;
  [[nodiscard]] std::uint32_t new_number();

  const ThreadChecker thread_;
  Machines& machines_;
  Browsers& browsers_;
  Transfers& transfers_;
  AuditTrail& audit_;
  const Log& log_;
  const Limits& limits_;
  std::map<std::uint32_t, Session> sessions_;  // by session number
  std::uint32_t last_number_;
  RateCounter cuts_;  // by the machine's id
};

}  // namespace vlk::relay
