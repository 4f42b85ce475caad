// The hub's part in file transfers: telling browsers and machines. And what sessions leave in the audit
// trail, most of it about files.
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/session/clip_note.h"
#include "relay/session/hub.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

void Hub::give_transfer(ConsolePeer& console, std::uint32_t number, std::int64_t request) {
  const nlohmann::json fields = {{"request", request}};
  const Session* session = find(number);
  if (!session || session->console.get() != &console || !session->accepted)
    return error(console, "There is no such session.", "", fields);
  const std::uint32_t transfer = transfers_.give(number);
  if (transfer == 0) return error(console, "Too many transfers are open.", session->agent->id, fields);
  console.socket->send_text(
      dump(nlohmann::json{{"type", "transfer"}, {"request", request}, {"transfer", transfer}}));
}

bool Hub::admit(const Session& session, Msg type, Bytes& message) {
  if (type == Msg::ClipboardData) note_clip(session, "clipboard-up", message);
  if (type == Msg::Reboot) note_event(session, {"restart", std::to_string(session.number)});
  if (!is_transfer(type)) return true;
  const TransferRuling ruling = transfers_.from_browser(session.number, type, message);
  if (ruling.note) note_event(session, *ruling.note);
  if (ruling.kind == TransferRuling::Kind::Refuse)
    error(*session.console, ruling.refusal, session.agent->id, {{"transfer", ruling.transfer}});
  const bool pass = ruling.kind == TransferRuling::Kind::Pass;
  // Only an upload's end passes.
  if (pass && type == Msg::FileTransferEnd)
    transfers_.owe(session.agent->id, {ruling.transfer}, Clock::now());
  return pass;
}

bool Hub::wanted(const Session& session, Msg type, const Bytes& message) {
  if (type == Msg::ClipboardData) note_clip(session, "clipboard-down", message);
  if (!is_transfer(type)) return true;
  const Transfers::Delivery delivery = transfers_.from_agent(session.number, type, message);
  if (delivery.note) note_event(session, *delivery.note);
  return delivery.wanted;
}

// A machine keeps the file of an upload open until it hears of its end, whatever becomes of the session.
void Hub::end_transfers(const Session& session, bool tell_agent) {
  const Transfers::Leftovers left = transfers_.end_session(session.number);
  for (const AuditNote& note : left.notes)
    note_event(session, note);
  transfers_.owe(session.agent->id, left.uploads, Clock::now());
  if (!tell_agent) return;
  for (const std::uint32_t upload : left.uploads)
    session.agent->socket->send_binary(upload_end(session.number, upload));
}

void Hub::note_clip(const Session& session, const char* event, const Bytes& message) {
  if (auto files = clip_note(message)) note_event(session, {event, std::move(*files)});
}

void Hub::note_event(const Session& session, const AuditNote& note) {
  notes_.push_back({note.event, session.console->representative, session.agent->id, session.console->address,
                    note.detail});
}

void Hub::write_notes() {
  if (notes_.empty()) return;
  try {
    store_.audit(notes_);
  } catch (const DatabaseError& failure) {
    log_.write("", "",
               std::to_string(notes_.size()) + " audit records of sessions are lost: " + failure.what());
  }
  notes_.clear();
}

}  // namespace vlk::relay
