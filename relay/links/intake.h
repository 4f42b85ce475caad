// An agent's messages while they arrive: which of them the relay holds in memory, and which it reads and
// drops because they are too large or no session accepts them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "relay/base/memory/arrivals.h"
#include "relay/base/memory/memory_budget.h"
#include "relay/net/incoming.h"
#include "relay/net/websocket_link.h"
#include "relay/session/router.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// Belongs to one connection. Used on the relay's one thread.
class Intake {
 public:
  // `router`, `limits` and `peer` outlive this object. `log` writes a line to the log.
  Intake(Router& router, const Limits& limits, AgentPeer& peer, std::function<void(const std::string&)> log)
      : router_(router), limits_(limits), peer_(peer), log_(std::move(log)) {}

  // To be called with each run of bytes that arrives. Returns No if the rest of the message is dropped, and
  // Later while the relay's memory is used by other messages. Informs the browser about a message that is too
  // large. Before the log-in, the link's read limit is the only limit.
  [[nodiscard]] WebSocketLink::Keep keep(Incoming& incoming);
  // The decision about a message that has arrived. Ends this message.
  [[nodiscard]] Route route(Incoming& incoming);
  // The claim for the memory of the message; empty for a small message.
  [[nodiscard]] MemoryBudget::Claim take_claim() { return std::exchange(claim_, {}); }

 private:
  void count(const Incoming& incoming);
  [[nodiscard]] WebSocketLink::Keep admit(const EnvelopeStart& start);

  Router& router_;
  const Limits& limits_;
  AgentPeer& peer_;
  const std::function<void(const std::string&)> log_;
  std::optional<EnvelopeStart> start_;  // of the message that arrives
  std::string reason_;                  // why it is dropped, for the log
  MemoryBudget::Claim claim_;
  Arrivals::Entry entry_;
  bool admitted_ = false;
  std::uint64_t counted_ = 0;  // bytes of the message that are counted in AgentPeer::times
  std::optional<Clock::time_point> waits_since_;
};

}  // namespace vlk::relay
