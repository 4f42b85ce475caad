// The file transfers of a session: their continuation for a browser that has come back, and their end.
#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/session/files/machine_lane.h"
#include "relay/session/table/sessions.h"
#include "relay/wire/console_messages.h"

namespace vlk::relay {
namespace {

const char* sentence_for(const std::string& code) {
  if (code == Downloads::kSpoolFull) {
    return "The file was not kept: the browser takes it more slowly than the machine sends it, and the disk "
           "space of the relay for this is used up.";
  }
  if (code == Downloads::kSpoolFailed) return "The file was not kept: the relay could not use its disk.";
  return "The relay does not have this part of the transfer.";
}

}  // namespace

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

void Sessions::resume_reading(std::uint32_t number) {
  if (const Session* session = find(number)) session->agent->channel->resume_waiting();
}

void Sessions::lose_download(std::uint32_t number, std::uint32_t download, const char* code) {
  const auto found = sessions_.find(number);
  if (found == sessions_.end()) return;
  Session& session = found->second;
  transfers_.give_up(number, download);
  log_.write(session.console->address, session.agent->id,
             "session " + std::to_string(number) + ": a download was not kept: " + code);
  if (session.away) {
    session.lost_downloads[download] = code;
  } else {
    browsers_.refuse(*session.console, sentence_for(code), session.agent->id,
                     {{"code", code}, {"transfer", download}});
  }
}

nlohmann::json Sessions::list_transfers(Session& session) {
  nlohmann::json list = nlohmann::json::array();
  for (const Transfers::Open& open : transfers_.open(session.number)) {
    nlohmann::json one = {
        {"transfer", open.number}, {"kind", open.upload ? "upload" : "download"}, {"path", open.path}};
    one["bytes"] = open.upload ? open.bytes : downloads_.confirmed(session.number, open.number);
    if (open.upload) one["size"] = open.size;
    list.push_back(std::move(one));
  }
  for (const auto& [number, code] : std::exchange(session.lost_downloads, {})) {
    list.push_back({{"transfer", number}, {"kind", "download"}, {"path", ""}, {"bytes", 0}, {"error", code}});
  }
  return list;
}

void Sessions::continue_transfer(ConsolePeer& console, std::uint32_t number, std::uint32_t transfer,
                                 std::uint64_t bytes) {
  thread_.check();
  const Session* session = find(number);
  // The session may have ended before the browser learns of it.
  if (!session || session->console.get() != &console || !session->accepted()) return;
  const auto open = transfers_.open(number);
  const auto found = std::ranges::find(open, transfer, &Transfers::Open::number);
  std::optional<Downloads::Start> start;
  if (found != open.end())
    start =
        found->upload ? Downloads::Start{found->bytes, 0} : downloads_.start_after(number, transfer, bytes);
  if (!start) {
    return browsers_.refuse(console, sentence_for(Downloads::kNotKept), session->agent->id,
                            {{"code", Downloads::kNotKept}, {"transfer", transfer}});
  }
  const nlohmann::json answer = {{"type", "continued"},
                                 {"session", number},
                                 {"transfer", transfer},
                                 {"bytes", start->bytes},
                                 {"chunk", start->chunk}};
  console.channel->send_text(answer.dump(), number);
  if (!found->upload) downloads_.go_on(number, transfer, session->console->channel, *start);
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
  for (const std::uint32_t download : cut.downloads)
    downloads_.drop(session.number, download);
}

// A machine keeps an upload's file open until it receives the upload's end message, even after the session.
// What is still queued of uploads that have ended comes before every later message, such as the session's
// end.
void Sessions::end_transfers(const Session& session, Tell tell) {
  for (const std::uint32_t upload : transfers_.open_uploads(session.number))
    discard(session, upload);
  session.agent->channel->promote_bulk(session.number);
  downloads_.end(session.number);
  session.agent->channel->resume_waiting();  // the machine may wait for the disk
  const Transfers::Leftovers left = transfers_.end_session(session.number);
  for (const TrailEntry& note : left.notes)
    audit_.note(session, note);
  transfers_.owe(session.agent->id, left.uploads, Clock::now());
  if (tell == Tell::BrowserOnly) return;
  for (const std::uint32_t upload : left.uploads)
    session.agent->channel->send_binary(upload_end(session.number, upload));
}

}  // namespace vlk::relay
