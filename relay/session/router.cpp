// Decides about each message: whether it is forwarded, handled by the relay, dropped or refused.
#include "relay/session/router.h"

#include <utility>

#include "relay/wire/clip_note.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kStampSize = 8;  // bytes of a StreamFrame's time stamp, before its picture

Route swallow(const EnvelopeHeader& header, std::string log_line = {}) {
  return {.kind = Route::Kind::Swallow, .header = header, .reason = std::move(log_line)};
}

Route refuse(const EnvelopeHeader& header, std::string sentence, std::string agent = {}) {
  return {.kind = Route::Kind::Refuse,
          .header = header,
          .reason = std::move(sentence),
          .agent = std::move(agent)};
}

Route forward(const EnvelopeHeader& header, const std::shared_ptr<Channel>& to) {
  return {.kind = Route::Kind::Forward, .header = header, .to = to};
}

bool is_for_browser(Msg type) {
  const MessageRule* rule = find_rule(type);
  return rule && rule->from_agent() && rule->scope == Scope::Session;
}

std::string oversized(Msg type) {
  return "ignored an oversized message of type " + std::to_string(static_cast<int>(type));
}

// What the log reports about a message that no session accepts. Frames are not logged, because an agent
// usually sends some before it receives the session's end.
std::string unwanted(const EnvelopeHeader& header) {
  if (header.type == Msg::StreamFrame) return {};
  return "dropped a message for session " + std::to_string(header.session) + ", which is not open";
}

// Completes the parameter sets of a frame's H.264 stream. Returns false if the frame contradicts what an
// earlier parameter set declared.
bool complete_frame(H264Stream& video, Bytes& message) {
  const std::size_t size = message.size();
  const bool in_order = video.complete(message, kEnvelopeHeaderSize + kStampSize);
  if (message.size() != size) set_payload_length(message);
  return in_order;
}

}  // namespace

Arrival Router::arrival_from_agent(const AgentPeer& peer, const EnvelopeStart& start) {
  thread_.check();
  const EnvelopeHeader& header = start.header;
  if (start.size <= limits_.control_message) return {};
  if (!is_for_browser(header.type)) return {.kind = Arrival::Kind::Drop, .reason = oversized(header.type)};
  const Session* session = session_of(peer, header.session);
  if (!session) return {.kind = Arrival::Kind::Drop, .reason = unwanted(header)};
  const std::shared_ptr<Channel>& browser = session->console->channel;
  if (start.size > limits_.agent_message) return {.kind = Arrival::Kind::TooLarge, .to = browser};
  if (start.size <= limits_.small_message) return {};
  MemoryBudget::Claim claim = large_messages_.claim(static_cast<std::size_t>(start.size));
  if (!claim) return {.kind = Arrival::Kind::TooLarge, .to = browser};
  return {.claim = std::move(claim)};
}

bool Router::still_wanted(const AgentPeer& peer, const EnvelopeStart& start) const {
  return start.size <= limits_.control_message || session_of(peer, start.header.session);
}

const Session* Router::session_of(const AgentPeer& peer, std::uint32_t number) const {
  const Session* session = sessions_.find(number);
  return session && session->agent.get() == &peer && session->accepted() ? session : nullptr;
}

Route Router::route_from_agent(AgentPeer& peer, Bytes& message) {
  thread_.check();
  const auto header = read_header(message);
  if (!header) return {};
  if (peer.refused || peer.channel->closing()) return swallow(*header);
  if (peer.id.empty()) return {.kind = Route::Kind::ForRelay, .header = *header};
  return is_for_browser(header->type) ? to_browser(peer, *header, message) : for_relay(*header, message);
}

Route Router::for_relay(const EnvelopeHeader& header, const Bytes& message) const {
  // The size is limited because parsed JSON takes many times its length in memory, and anybody may enrol.
  if (message.size() > limits_.control_message) return swallow(header, oversized(header.type));
  const MessageRule* rule = find_rule(header.type);
  if (!rule || !rule->from_agent())
    return swallow(header, "ignored a message of type " + std::to_string(static_cast<int>(header.type)));
  return {.kind = Route::Kind::ForRelay, .header = header};
}

Route Router::to_browser(AgentPeer& peer, const EnvelopeHeader& header, Bytes& message) {
  const Session* session = session_of(peer, header.session);
  if (!session) return swallow(header, unwanted(header));
  Route route = forward(header, session->console->channel);
  if (header.type == Msg::StreamConfig) peer.video = {};
  if (header.type == Msg::StreamFrame) route.key_frame_needed = !complete_frame(peer.video, message);
  if (header.type == Msg::ClipboardData) note_clipboard(*session, "clipboard-down", message);
  if (!is_transfer(header.type)) return route;
  const Transfers::Delivery delivery = transfers_.from_agent(header.session, header.type, message);
  if (delivery.note) audit_.note(*session, *delivery.note);
  return delivery.wanted ? route : swallow(header);
}

Route Router::route_from_browser(const ConsolePeer& peer, Bytes& message) {
  thread_.check();
  const auto header = read_header(message);
  if (!header) return {};
  const Session* session = sessions_.find(header->session);
  if (!session || session->console.get() != &peer) return refuse(*header, "There is no such session.");
  if (!session->accepted()) return refuse(*header, "The session has not been accepted.", session->agent->id);
  const MessageRule* rule = find_rule(header->type);
  if (!rule || !rule->to_agent() || rule->scope != Scope::Session)
    return refuse(*header, "A message of that type may not be sent to the machine.", session->agent->id);
  return to_machine(*session, *header, message);
}

Route Router::to_machine(const Session& session, const EnvelopeHeader& header, Bytes& message) {
  Route route = forward(header, session.agent->channel);
  if (header.type == Msg::ClipboardData) note_clipboard(session, "clipboard-up", message);
  if (header.type == Msg::Reboot) audit_.note(session, {"restart", std::to_string(session.number)});
  if (!is_transfer(header.type)) return route;
  const TransferRuling ruling = transfers_.from_browser(session.number, header.type, message);
  if (ruling.note) audit_.note(session, *ruling.note);
  switch (ruling.kind) {
    case TransferRuling::Kind::Refuse: {
      Route refusal = refuse(header, ruling.refusal, session.agent->id);
      refusal.transfer = ruling.transfer;
      return refusal;
    }
    case TransferRuling::Kind::Swallow:
      return swallow(header);
    case TransferRuling::Kind::Pass:
      break;
  }
  // This message ends an upload: a browser's end message for a download is swallowed above.
  if (header.type == Msg::FileTransferEnd) transfers_.owe(session.agent->id, {ruling.transfer}, Clock::now());
  return route;
}

void Router::note_clipboard(const Session& session, const char* event, const Bytes& message) {
  if (auto files = clip_note(message)) audit_.note(session, {event, std::move(*files)});
}

}  // namespace vlk::relay
