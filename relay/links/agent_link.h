// The server side of the agents' link: hello, enrolment or log-in, and then the agent's messages.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>

#include "relay/base/rate_counter.h"
#include "relay/session/hub.h"

namespace vlk::relay {

// What agents' links share. Owned by the server, which outlives every link.
struct AgentContext {
  Hub& hub;
  Store& store;
  const Log& log;
  const Limits& limits;
  // Per address.
  RateCounter& enrolments;
  RateCounter& refusals;  // of log-ins; more are not kept in the audit trail
};

// Serves one agent until its connection ends. `source` is the address without port, as far as it is counted.
boost::asio::awaitable<void> serve_agent(AgentContext& context, std::shared_ptr<AgentPeer> peer,
                                         std::string source);

}  // namespace vlk::relay
