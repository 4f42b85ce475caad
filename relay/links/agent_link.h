// The relay's side of an agent's connection: hello, enrolment or log-in, then the agent's messages.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/rate_counter.h"
#include "relay/session/parts.h"
#include "relay/storage/store.h"

namespace vlk::relay {

class WebSocketLink;

// What all agents' connections share. Owned by the server, which outlives each connection.
struct AgentContext {
  Parts& parts;
  Store& store;
  const Log& log;
  const Limits& limits;
  // Both count by address.
  RateCounter& enrolments;
  RateCounter& refusals;  // refused log-ins; beyond the limit they are not written to the audit trail
};

// Serves one agent until its connection ends. `address` includes the port; `source` is the address without
// it, by which enrolments and refusals are counted.
[[nodiscard]] boost::asio::awaitable<void> serve_agent(AgentContext& context,
                                                       std::shared_ptr<WebSocketLink> link,
                                                       std::string address, std::string source);

}  // namespace vlk::relay
