// Decides which messages pass between machines and browsers. Every message of a peer that is logged in comes
// through here once, and nothing else lets one pass.
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

// What becomes of one message.
struct Route {
  enum class Kind {
    Malformed,  // not an envelope: the connection is to be closed
    Forward,    // goes to `to`, with the session's number as its tag
    ForRelay,   // is addressed to the relay itself
    Swallow,    // ends here, without an answer
    Refuse,     // ends here; the browser is told `reason`
  };
  Kind kind = Kind::Malformed;
  EnvelopeHeader header{};
  std::shared_ptr<Channel> to{};
  std::string reason{};  // of Refuse, a sentence; of Swallow, a line for the log, often empty
  std::string agent{};   // of Refuse: the machine's id, if the session is the browser's own
  std::optional<std::uint32_t> transfer{};  // of Refuse: the file transfer, if the message is about one
  bool key_frame_needed = false;            // of Forward: decoders need a key frame to go on
};

// Used on the relay's one thread.
class Router {
 public:
  // The parts outlive this.
  Router(const Sessions& sessions, Transfers& transfers, AuditTrail& audit, const Limits& limits)
      : sessions_(sessions), transfers_(transfers), audit_(audit), limits_(limits) {}

  // A message of a machine. The parameter sets of an H.264 frame are completed in `message`.
  [[nodiscard]] Route route_from_agent(AgentPeer& peer, Bytes& message);
  // A message of a browser. Requests about files are rewritten in `message`.
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
