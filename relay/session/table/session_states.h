// The states of a session and the events that change them.
#pragma once

#include <optional>

#include "relay/session/peers.h"

namespace vlk::relay {

// Drop: the browser disconnected. Resume: it is back. End: the browser ended the session, or the machine's
// connection or a time limit did.
enum class SessionEvent { Accept, Reject, Drop, Resume, End };

struct SessionTransition {
  SessionState from;
  SessionEvent event;
  SessionState to;
};

// All transitions of a session's state. An event that is not listed for a state does not change it.
inline constexpr SessionTransition kSessionTransitions[] = {
    {SessionState::Asked, SessionEvent::Accept, SessionState::Accepted},
    {SessionState::Asked, SessionEvent::Reject, SessionState::Ended},
    {SessionState::Asked, SessionEvent::End, SessionState::Ended},
    {SessionState::Accepted, SessionEvent::Drop, SessionState::Held},
    {SessionState::Accepted, SessionEvent::End, SessionState::Ended},
    {SessionState::Held, SessionEvent::Resume, SessionState::Accepted},
    {SessionState::Held, SessionEvent::End, SessionState::Ended},
};

[[nodiscard]] constexpr std::optional<SessionState> next_state(SessionState from, SessionEvent event) {
  for (const SessionTransition& transition : kSessionTransitions) {
    if (transition.from == from && transition.event == event) return transition.to;
  }
  return std::nullopt;
}

}  // namespace vlk::relay
