// Ends a session's file transfers, and tells its browser how far its uploads are.
#include <nlohmann/json.hpp>

#include "relay/session/files/machine_lane.h"
#include "relay/session/table/sessions.h"
#include "relay/wire/console_messages.h"

namespace vlk::relay {

void Sessions::upload_passed(std::uint32_t number, std::uint64_t bytes) {
  const auto total = uploads_.passed(number, bytes);
  const Session* session = find(number);
  if (!total || !session) return;
  const nlohmann::json message = {{"type", "uploaded"}, {"session", number}, {"bytes", *total}};
  session->console->channel->send_text(message.dump(), number);
}

void Sessions::discard(const Session& session, std::uint32_t upload) {
  const std::uint64_t bytes = discard_upload(*session.agent->channel, session.number, upload);
  transfers_.take_back(session.number, upload, bytes);
  if (bytes > 0) upload_passed(session.number, bytes);
}

void Sessions::cut_transfers(const Session& session, bool uploads, bool downloads) {
  if (uploads) {
    for (const std::uint32_t upload : transfers_.open_uploads(session.number))
      discard(session, upload);
  }
  Transfers::Cut cut = transfers_.cut(session.number, uploads, downloads);
  for (const TrailEntry& note : cut.notes)
    audit_.note(session, note);
  transfers_.owe(session.agent->id, cut.uploads, Clock::now());
  for (const std::uint32_t upload : cut.uploads)
    session.agent->channel->send_binary(upload_end(session.number, upload));
  cut.uploads.insert(cut.uploads.end(), cut.downloads.begin(), cut.downloads.end());
  for (const std::uint32_t transfer : cut.uploads) {
    browsers_.refuse(*session.console, "Your right to move this file was taken away.", session.agent->id,
                     {{"code", kNoRightCode}, {"transfer", transfer}});
  }
}

// A machine keeps an upload's file open until it receives the upload's end message, even after the session.
// What is still queued of uploads that have ended comes before every later message, such as the session's
// end.
void Sessions::end_transfers(const Session& session, Tell tell) {
  for (const std::uint32_t upload : transfers_.open_uploads(session.number))
    discard(session, upload);
  session.agent->channel->promote_bulk(session.number);
  const Transfers::Leftovers left = transfers_.end_session(session.number);
  for (const TrailEntry& note : left.notes)
    audit_.note(session, note);
  transfers_.owe(session.agent->id, left.uploads, Clock::now());
  if (tell == Tell::BrowserOnly) return;
  for (const std::uint32_t upload : left.uploads)
    session.agent->channel->send_binary(upload_end(session.number, upload));
}

}  // namespace vlk::relay
