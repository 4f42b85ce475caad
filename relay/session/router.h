// Decides which messages pass between machines and browsers. Every message of a logged-in peer goes through
// the router once; no message passes between a machine and a browser without it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/limits.h"
#include "relay/base/memory/arrivals.h"
#include "relay/base/memory/memory_budget.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/files/downloads.h"
#include "relay/session/files/transfers.h"
#include "relay/session/peers.h"
#include "relay/session/table/sessions.h"
#include "relay/session/trail/audit_trail.h"
#include "relay/session/trail/clip_notes.h"
#include "relay/session/trail/folder_notes.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// The decision about one message.
struct Route {
  enum class Kind {
    Malformed,  // the message is not an envelope; the caller closes the connection
    Forward,    // the caller sends the message to `to`
    ForRelay,   // the message is for the relay itself; of a browser: the session is to watch the stream
    Swallow,    // the message is dropped without an answer
    Refuse,     // the message is dropped, and the browser receives the error `reason`
  };
  Kind kind = Kind::Malformed;
  EnvelopeHeader header{};
  // For Forward. Null for a picture or a message of a download of a session whose browser is away.
  std::shared_ptr<Channel> to{};
  std::string reason{};     // for Refuse, a sentence; for Swallow, a line for the log or empty
  std::string agent{};      // for Refuse: the machine's id, if the browser has this session
  std::string code{};       // for Refuse: the reason for the console's code, or empty
  std::uint32_t index = 0;  // for Forward: of an upload's chunk, for send_to_machine
  std::optional<std::uint32_t> transfer{};  // for Refuse: the number of the file transfer, if any
  // For Forward, of a machine: the number of the download to which the message belongs, or 0. The caller
  // gives the message to Downloads, which sends it.
  std::uint32_t download = 0;
  // For Forward: the number of the upload whose end message this is; the caller calls owe() after sending it.
  std::optional<std::uint32_t> ended_upload{};
  bool key_frame_needed = false;         // for Forward: the caller requests a key frame from the agent
  std::optional<PictureKind> picture{};  // for Forward: the message belongs to a stream of pictures
  // For Forward, of a browser: what the machine gets after the message.
  SharedStream::Orders then{};
  bool stream_changed = false;  // for Forward: the message changes what the stream shows
};

// The decision about a message of a machine while it arrives.
struct Arrival {
  enum class Kind {
    Hold,      // the message may be held in memory
    Later,     // there is no memory for the message at the moment; the caller asks again
    Drop,      // the message is read and dropped
    TooLarge,  // the same, and the browser `to` is informed
  };
  Kind kind = Kind::Hold;
  std::string reason{};  // for Drop: a line for the log or empty
  std::shared_ptr<Channel> to{};
  MemoryBudget::Claim claim{};  // for Hold: to be kept as long as the message
  Arrivals::Entry entry{};      // for Hold: to be kept until the message has arrived
};

// Used on the relay's one thread.
class Router {
 public:
  // The arguments outlive this object.
  Router(const Sessions& sessions, Transfers& transfers, Downloads& downloads, PressedInput& pressed,
         AuditTrail& audit, ClipNotes& clips, const Limits& limits)
      : sessions_(sessions),
        transfers_(transfers),
        downloads_(downloads),
        pressed_(pressed),
        audit_(audit),
        clips_(clips),
        limits_(limits),
        in_flight_(limits.bytes_in_flight) {}

  // Decides whether a message of a machine that has logged in may be held, as soon as its header has arrived.
  // A machine without an accepted session can make the relay hold only small messages.
  // Later is the answer while there is no memory for a small message. If the message has `waited` as long as
  // it may, the largest message that arrives is cut, or this one is TooLarge if none is larger.
  [[nodiscard]] Arrival arrival_from_agent(const AgentPeer& peer, const EnvelopeStart& start, bool waited);
  // True while a message that was allowed by arrival_from_agent may be held. A session can end while its
  // message arrives.
  [[nodiscard]] bool still_wanted(const AgentPeer& peer, const EnvelopeStart& start) const;

  // Decides about a message of a machine. Completes the parameter sets of an H.264 frame in `message`.
  [[nodiscard]] Route route_from_agent(AgentPeer& peer, Bytes& message);
  // Decides whether a message of a browser may be held. The answer is Hold or Later.
  [[nodiscard]] Arrival arrival_from_browser(const ConsolePeer& peer, const EnvelopeStart& start,
                                             bool waited);
  // Decides about a message of a browser. Rewrites a request about files in `message`.
  [[nodiscard]] Route route_from_browser(const ConsolePeer& peer, Bytes& message);

  // Bytes of the messages over Limits::control_message that are held, of Limits::bytes_in_flight.
  [[nodiscard]] std::size_t held_bytes() const { return in_flight_.used(); }

 private:
  // The machine's running session with this number, or null.
  [[nodiscard]] const Session* session_of(const AgentPeer& peer, std::uint32_t number) const;
  [[nodiscard]] Route for_relay(const EnvelopeHeader& header, const Bytes& message) const;
  [[nodiscard]] Route to_browser(AgentPeer& peer, const EnvelopeHeader& header, Bytes& message);
  [[nodiscard]] Route to_machine(const Session& session, const EnvelopeHeader& header, Bytes& message);
  // Decides about a message that changes the machine's stream.
  [[nodiscard]] static Route to_stream(const Session& session, const EnvelopeHeader& header, Bytes& message);
  [[nodiscard]] Arrivals::Entry enter(const EnvelopeStart& start, const std::shared_ptr<Channel>& channel);
  // Tells the browser that its input does not reach the machine.
  static void report_dropped_input(const Session& session);
  void note_clipboard(const Session& session, const char* direction, const Bytes& message);

  const ThreadChecker thread_;
  const Sessions& sessions_;
  Transfers& transfers_;
  Downloads& downloads_;
  PressedInput& pressed_;
  AuditTrail& audit_;
  ClipNotes& clips_;
  FolderNotes folders_;
  const Limits& limits_;
  MemoryBudget in_flight_;
  Arrivals arriving_;
};

}  // namespace vlk::relay
