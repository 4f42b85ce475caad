// Decides which messages pass between machines and browsers. Every message of a logged-in peer goes through
// the router once; no message passes between a machine and a browser without it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/limits.h"
#include "relay/base/memory_budget.h"
#include "relay/base/thread_checker.h"
#include "relay/session/audit_trail.h"
#include "relay/session/peers.h"
#include "relay/session/sessions.h"
#include "relay/session/transfers.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// The decision about one message.
struct Route {
  enum class Kind {
    Malformed,  // the message is not an envelope; the caller closes the connection
    Forward,    // the caller sends the message to `to`
    ForRelay,   // the message is for the relay itself
    Swallow,    // the message is dropped without an answer
    Refuse,     // the message is dropped, and the browser receives the error `reason`
  };
  Kind kind = Kind::Malformed;
  EnvelopeHeader header{};
  std::shared_ptr<Channel> to{};
  std::string reason{};  // for Refuse, a sentence; for Swallow, a line for the log or empty
  std::string agent{};   // for Refuse: the machine's id, if the browser has this session
  std::optional<std::uint32_t> transfer{};  // for Refuse: the number of the file transfer, if any
  bool key_frame_needed = false;            // for Forward: the caller requests a key frame from the agent
};

// The decision about a message of a machine while it arrives.
struct Arrival {
  enum class Kind {
    Hold,      // the message may be held in memory
    Drop,      // the message is read and dropped
    TooLarge,  // the same, and the browser `to` is informed
  };
  Kind kind = Kind::Hold;
  std::string reason{};  // for Drop: a line for the log or empty
  std::shared_ptr<Channel> to{};
  MemoryBudget::Claim claim{};  // for Hold: to be kept as long as the message
};

// Used on the relay's one thread.
class Router {
 public:
  // The arguments outlive this object.
  Router(const Sessions& sessions, Transfers& transfers, AuditTrail& audit, const Limits& limits)
      : sessions_(sessions),
        transfers_(transfers),
        audit_(audit),
        limits_(limits),
        large_messages_(limits.large_messages) {}

  // Decides whether a message of a machine that has logged in may be held, as soon as its header has arrived.
  // A machine without an accepted session can make the relay hold only small messages.
  [[nodiscard]] Arrival arrival_from_agent(const AgentPeer& peer, const EnvelopeStart& start);
  // True while a message that was allowed by arrival_from_agent may be held. A session can end while its
  // message arrives.
  [[nodiscard]] bool still_wanted(const AgentPeer& peer, const EnvelopeStart& start) const;

  // Decides about a message of a machine. Completes the parameter sets of an H.264 frame in `message`.
  [[nodiscard]] Route route_from_agent(AgentPeer& peer, Bytes& message);
  // Decides about a message of a browser. Rewrites a request about files in `message`.
  [[nodiscard]] Route route_from_browser(const ConsolePeer& peer, Bytes& message);

 private:
  // The machine's accepted session with this number, or null.
  [[nodiscard]] const Session* session_of(const AgentPeer& peer, std::uint32_t number) const;
  [[nodiscard]] Route for_relay(const EnvelopeHeader& header, const Bytes& message) const;
  [[nodiscard]] Route to_browser(AgentPeer& peer, const EnvelopeHeader& header, Bytes& message);
  [[nodiscard]] Route to_machine(const Session& session, const EnvelopeHeader& header, Bytes& message);
  void note_clipboard(const Session& session, const char* event, const Bytes& message);

  const ThreadChecker thread_;
  const Sessions& sessions_;
  Transfers& transfers_;
  AuditTrail& audit_;
  const Limits& limits_;
  MemoryBudget large_messages_;
};

}  // namespace vlk::relay
