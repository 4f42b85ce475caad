// The relay's side of an agent's connection: hello, enrolment or log-in, then the agent's messages.
#pragma once

#include <memory>

#include <boost/asio/awaitable.hpp>

#include "relay/admission/admission.h"
#include "relay/base/counting/rate_counter.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/net/connections.h"
#include "relay/session/parts.h"

namespace vlk::relay {

class WebSocketLink;

// What all agents' connections share. Owned by the server, which outlives each connection.
struct AgentContext {
  Parts& parts;
  Admission& admission;
  const Log& log;
  const Limits& limits;
  // These two count by source.
  RateCounter& enrolments;
  RateCounter& refusals;  // refused log-ins; beyond the limit they are not written to the audit trail
  // These two count by machine id, because each event leaves rows in the audit trail.
  RateCounter& renames;  // beyond the limit new names are ignored
  RateCounter& log_ins;  // beyond the limit the machine is held back
};

// Serves one agent until its connection ends.
[[nodiscard]] boost::asio::awaitable<void> serve_agent(AgentContext& context,
                                                       std::shared_ptr<WebSocketLink> link,
                                                       Connections::Place& place);

}  // namespace vlk::relay
