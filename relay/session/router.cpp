// Decides about each message: whether it is forwarded, handled by the relay, dropped or refused.
#include "relay/session/router.h"

#include <span>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/wire/clip_note.h"
#include "relay/wire/console_messages.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kStampSize = 8;  // bytes of a StreamFrame's time stamp, before its picture

constexpr std::chrono::seconds kDroppedInputReports{1};  // the least time between two

Route swallow(const EnvelopeHeader& header, std::string log_line = {}) {
  return {.kind = Route::Kind::Swallow, .header = header, .reason = std::move(log_line)};
}

Route refuse(const EnvelopeHeader& header, std::string sentence, std::string agent = {}) {
  return {.kind = Route::Kind::Refuse,
          .header = header,
          .reason = std::move(sentence),
          .agent = std::move(agent)};
}

std::span<const std::uint8_t> payload_of(const Bytes& message) {
  return std::span(message).subspan(kEnvelopeHeaderSize);
}

Route no_right(const EnvelopeHeader& header, const std::string& agent, const Bytes& message) {
  Route refusal = refuse(header, "You do not have the right to do this on this machine.", agent);
  refusal.code = kNoRightCode;
  if (is_transfer(header.type)) refusal.transfer = transfer_number(header.type, message);
  return refusal;
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

bool is_about_stream(Msg type) {
  switch (type) {
    case Msg::StreamStart:
    case Msg::StreamStop:
    case Msg::KeyframeRequest:
    case Msg::MonitorSelect:
    case Msg::CodecSelect:
    case Msg::CursorVisibility:
      return true;
    default:
      return false;
  }
}

PictureKind kind_of(const Bytes& frame) {
  const std::size_t start = kEnvelopeHeaderSize + kStampSize;
  if (frame.size() < start) return PictureKind::Complete;
  switch (needs_of(std::span(frame).subspan(start))) {
    case PictureNeeds::NoStream:
      return PictureKind::Complete;
    case PictureNeeds::Nothing:
      return PictureKind::Key;
    case PictureNeeds::Earlier:
      break;
  }
  return PictureKind::Delta;
}

}  // namespace

// The list of arriving messages for those that were allowed to hold memory.
Arrivals::Entry Router::enter(const EnvelopeStart& start, const std::shared_ptr<Channel>& channel) {
  return arriving_.add(static_cast<std::size_t>(start.size), [weak = std::weak_ptr(channel)] {
    if (const auto peer = weak.lock()) peer->cut("its message was the largest when the memory was used up");
  });
}

Arrival Router::arrival_from_agent(const AgentPeer& peer, const EnvelopeStart& start, bool waited) {
  thread_.check();
  const EnvelopeHeader& header = start.header;
  if (start.size <= limits_.control_message) return {};
  if (!is_for_browser(header.type)) return {.kind = Arrival::Kind::Drop, .reason = oversized(header.type)};
  const Session* session = session_of(peer, header.session);
  if (!session) return {.kind = Arrival::Kind::Drop, .reason = unwanted(header)};
  const std::shared_ptr<Channel>& browser = session->console->channel;
  if (start.size > limits_.agent_message) return {.kind = Arrival::Kind::TooLarge, .to = browser};
  const auto size = static_cast<std::size_t>(start.size);
  const bool small = size <= limits_.small_message;
  MemoryBudget::Claim claim =
      in_flight_.claim(size, small ? limits_.bytes_in_flight : limits_.large_messages);
  if (claim) return {.claim = std::move(claim), .entry = enter(start, peer.channel)};
  // A message that was cut gives its memory back a moment later.
  const bool later = small && (!waited || arriving_.cut_larger_than(size));
  return {.kind = later ? Arrival::Kind::Later : Arrival::Kind::TooLarge, .to = browser};
}

bool Router::still_wanted(const AgentPeer& peer, const EnvelopeStart& start) const {
  return start.size <= limits_.control_message || session_of(peer, start.header.session);
}

const Session* Router::session_of(const AgentPeer& peer, std::uint32_t number) const {
  const Session* session = sessions_.find(number);
  return session && session->agent.get() == &peer && session->running() ? session : nullptr;
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
  const bool picture = header.type == Msg::StreamConfig || header.type == Msg::StreamFrame;
  if (picture && !peer.stream.is_current(header.session)) return swallow(header);
  const bool allowed = allows_to_browser(session->rights, header.type, payload_of(message));
  // Each end of a transfer is recorded, also of one that the representative has no right to any more.
  if (!allowed && !is_transfer(header.type)) return swallow(header);
  if (session->away && !picture && !is_transfer(header.type)) return swallow(header);
  Route route = forward(header, session->away ? nullptr : session->console->channel);
  if (header.type == Msg::StreamConfig) {
    peer.stream.video = {};
    route.picture = PictureKind::Settings;
  }
  if (header.type == Msg::StreamFrame) {
    route.key_frame_needed = !complete_frame(peer.stream.video, message);
    route.picture = kind_of(message);
  }
  if (header.type == Msg::ClipboardData) note_clipboard(*session, "down", message);
  if (!is_transfer(header.type)) return route;
  const Transfers::Delivery delivery = transfers_.from_agent(header.session, header.type, message);
  if (delivery.note) audit_.note(*session, *delivery.note);
  route.download = delivery.download;
  const bool possible = delivery.download != 0 || !session->away;
  return allowed && delivery.wanted && possible ? route : swallow(header);
}

Arrival Router::arrival_from_browser(const ConsolePeer& peer, const EnvelopeStart& start, bool waited) {
  thread_.check();
  const auto size = static_cast<std::size_t>(start.size);
  MemoryBudget::Claim claim = in_flight_.claim(size);
  if (claim) return {.claim = std::move(claim), .entry = enter(start, peer.channel)};
  if (waited) arriving_.cut_larger_than(size);
  return {.kind = Arrival::Kind::Later};
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
  if (!allows_to_machine(session->rights, header->type, payload_of(message)))
    return no_right(*header, session->agent->id, message);
  return to_machine(*session, *header, message);
}

Route Router::to_stream(const Session& session, const EnvelopeHeader& header, Bytes& message) {
  SharedStream& stream = session.agent->stream;
  const std::uint32_t steering = session.agent->steering;
  const bool chooses = steering == session.number || stream.leader() == 0;
  Route route = forward(header, session.agent->channel);
  if (header.type == Msg::KeyframeRequest)
    return stream.need_key_frame(Clock::now()) ? route : swallow(header);
  if (header.type == Msg::StreamStop) {
    route.then = stream.stopped(session.number, steering);
    if (stream.leader() == 0) session.agent->recent.clear();
    return route;
  }
  if (!chooses) {
    return header.type == Msg::StreamStart ? Route{.kind = Route::Kind::ForRelay, .header = header}
                                           : swallow(header);
  }
  const nlohmann::json payload = agent_json(message);
  if (header.type == Msg::StreamStart) {
    StreamChoices choices = stream_choices(payload);
    AgentPeer& agent = *session.agent;
    if (const auto rates = agent.quality.start(Clock::now(), agent.heartbeats.round_trip())) {
      choices.max_fps = rates->fps;
      choices.bitrate = rates->bitrate;
      message = *json_envelope(Msg::StreamStart, session.number, start_json(choices));
    }
    stream.started(session.number, choices);
  } else {
    stream.chosen(header.type, payload);
  }
  route.stream_changed = true;
  return route;
}

Route Router::to_machine(const Session& session, const EnvelopeHeader& header, Bytes& message) {
  if (is_about_stream(header.type)) return to_stream(session, header, message);
  Route route = forward(header, session.agent->channel);
  if (header.type == Msg::InputEvent) {
    const bool stale = session.agent->channel->line_stall(Clock::now()) >= limits_.stale_input;
    if (stale) report_dropped_input(session);
    if (stale && !pressed_.keep_releases(session.number, message)) return swallow(header);
    const bool acts = pressed_.note(session.number, payload_of(message));
    session.agent->quality.input(Clock::now(), acts);
  }
  if (header.type == Msg::ClipboardData) note_clipboard(session, "up", message);
  if (header.type == Msg::Reboot) audit_.note(session, trail_entry<TrailKind::ControlRestart>({}));
  if (header.type == Msg::SecureAttention)
    audit_.note(session, trail_entry<TrailKind::ControlSecureAttention>({}));
  if (header.type == Msg::DirListRequest) folders_.note(audit_, session, message, Clock::now());
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
      downloads_.drop(session.number, ruling.transfer);
      return swallow(header);
    case TransferRuling::Kind::Pass:
      break;
  }
  if (header.type == Msg::DownloadRequest)
    downloads_.begin(session.number, ruling.transfer, session.console->channel);
  route.index = ruling.index;
  // This message ends an upload: a browser's end message for a download is swallowed above.
  if (header.type == Msg::FileTransferEnd) route.ended_upload = ruling.transfer;
  return route;
}

// The report is not a refusal for the log, since one interruption of a line drops many events.
void Router::report_dropped_input(const Session& session) {
  const auto now = Clock::now();
  auto& reported = session.agent->dropped_input_reported;
  if (now - reported < kDroppedInputReports) return;
  reported = now;
  session.console->channel->send_text(
      error_message("The machine's line is interrupted, so keys and clicks are not sent.", session.agent->id,
                    {{"code", "input-dropped"}}),
      session.number);
}

void Router::note_clipboard(const Session& session, const char* direction, const Bytes& message) {
  if (const auto clip = clip_note(message)) clips_.note(session, direction, *clip, Clock::now());
}

}  // namespace vlk::relay
