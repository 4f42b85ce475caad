// The sessions of representatives with machines: asked, accepted, ended.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/thread_checker.h"
#include "relay/session/audit_trail.h"
#include "relay/session/browsers.h"
#include "relay/session/machines.h"
#include "relay/session/peers.h"
#include "relay/session/transfers.h"

namespace vlk::relay {

// What happens to a session. An End comes from the browser, from a lost connection or from a time limit.
enum class SessionEvent { Accept, Reject, End };

struct SessionTransition {
  SessionState from;
  SessionEvent event;
  SessionState to;
};

// All that a session can go through. Each other event is ignored.
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

// Carries out each transition: tells the browser and the machine, and leaves a row in the audit trail. Used
// on the relay's one thread.
class Sessions {
 public:
  // The parts outlive this. The first session gets the number after `start`.
  Sessions(Machines& machines, Browsers& browsers, Transfers& transfers, AuditTrail& audit, const Log& log,
           const Limits& limits, std::uint32_t start);

  // Asks the machine for a session. The browser is told if that is refused.
  void open(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id);
  // Ends a session of this browser. The browser is told if it has none of that number.
  void close(ConsolePeer& console, std::uint32_t number);
  // The machine's answers.
  void accept(AgentPeer& peer, std::uint32_t number);
  void reject(AgentPeer& peer, std::uint32_t number);

  // Ends sessions without a request: all of a lost machine, all of a browser, those that nobody answered.
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
  std::map<std::uint32_t, Session> sessions_;  // by number
  std::uint32_t last_number_;
};

}  // namespace vlk::relay
