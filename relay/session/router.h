// Decides which messages pass between machines and browsers. Every message of a logged-in peer goes through
// the router once; no message passes between a machine and a browser without it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/limits.h"
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

// Used on the relay's one thread.
class Router {
 public:
  // The arguments outlive this object.
  Router(const Sessions& sessions, Transfers& transfers, AuditTrail& audit, const Limits& limits)
      : sessions_(sessions), transfers_(transfers), audit_(audit), limits_(limits) {}

  // Decides about a message of a machine. Completes the parameter sets of an H.264 frame in `message`.
  [[nodiscard]] Route route_from_agent(AgentPeer& peer, Bytes& message);
  // Decides about a message of a browser. Rewrites a request about files in `message`.
  [[nodiscard]] Route route_from_browser(const ConsolePeer& peer, Bytes& message);

 private:
  [[nodiscard]] Route for_relay(const EnvelopeHeader& header, const Bytes& message) const;
  [[nodiscard]] Route to_browser(AgentPeer& peer, const EnvelopeHeader& header, Bytes& message);
  [[nodiscard]] Route to_machine(const Session& session, const EnvelopeHeader& header, Bytes& message);
  void note_clipboard(const Session& session, const char* event, const Bytes& message);

  const ThreadChecker thread_;
  const Sessions& sessions_;
  Transfers& transfers_;
  AuditTrail& audit_;
  const Limits& limits_;
};

}  // namespace vlk::relay
