// What must hold after each step of an input, and at its end.
#include <algorithm>

#include <nlohmann/json.hpp>

#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"
#include "relay/wire/envelope.h"
#include "require.h"
#include "world/session_script.h"

namespace vlk::relay::fuzz {
namespace {

using Json = nlohmann::json;

template <class Read>
void read_all(Channel& channel, Read read) {
  while (const auto piece = channel.take()) {
    REQUIRE(piece->first && piece->last);
    read(*piece);
    channel.written(*piece);
  }
  channel.finished_work();
}

std::span<const std::uint8_t> payload_of(const Bytes& message) {
  return std::span(message).subspan(kEnvelopeHeaderSize);
}

}  // namespace

void SessionScript::check_sessions() {
  Parts& parts = world_.parts();
  std::set<std::pair<const AgentPeer*, PersonId>> known;
  for (const auto& [number, session] : parts.sessions.all()) {
    REQUIRE(number != 0 && session.number == number && session.state != SessionState::Ended);
    const MachineRecord* machine = parts.machines.find(session.agent->id);
    REQUIRE(machine && machine->state == MachineState::Approved);
    REQUIRE(parts.machines.connection(machine->id) == session.agent);
    // One session for each person and machine.
    REQUIRE(known.insert({session.agent.get(), session.console->person}).second);
    const Rights rights = parts.people.rights_of(session.console->person, machine->group);
    REQUIRE((rights & kSee) && session.granted == rights && (session.rights & ~rights) == 0);
    if (session.accepted()) past_rights_[number] |= rights;
  }
}

bool SessionScript::allowed(const EnvelopeHeader& header, const Bytes& message, bool to_machine) {
  const Session* session = world_.parts().sessions.find(header.session);
  Rights rights = session && session->accepted() ? session->rights : kNoRights;
  // Of a session that is held, the relay itself releases what is pressed and stops the stream.
  const bool of_relay = to_machine && session && session->state == SessionState::Held &&
                        (header.type == Msg::InputEvent || header.type == Msg::StreamStop);
  // A session can be accepted and then held within one step, before its rights are noted.
  if (of_relay) rights = session->rights | past_rights_[header.session];
  if (!session || (was_slow_ && !to_machine)) rights = past_rights_[header.session];
  return to_machine ? allows_to_machine(rights, header.type, payload_of(message))
                    : allows_to_browser(rights, header.type, payload_of(message));
}

void SessionScript::read_agent() {
  read_all(agent_.channel(), [this](const Channel::Piece& piece) {
    REQUIRE(!piece.text);
    check_to_agent(*piece.message);
  });
}

void SessionScript::check_to_agent(const Bytes& message) {
  const auto header = read_header(message);
  REQUIRE(header);
  const MessageRule* rule = find_rule(header->type);
  REQUIRE(rule && rule->to_agent());
  if (header->type == Msg::SessionRequest) sessions_.push_back(header->session);
  // The relay itself requests key frames and ends uploads, also after the session.
  if (rule->scope != Scope::Session || header->type == Msg::KeyframeRequest ||
      header->type == Msg::FileTransferEnd)
    return;
  REQUIRE(allowed(*header, message, true));
  if (header->type == Msg::Reboot) ++passed_["control.restart"];
  if (header->type == Msg::SecureAttention) ++passed_["control.ctrl-alt-del"];
  if (header->type == Msg::ClipboardData && message.size() > kEnvelopeHeaderSize) ++passed_["clip.sent"];
  if (header->type == Msg::DownloadRequest || header->type == Msg::UploadBegin) ++passed_["file.started"];
}

void SessionScript::read_browser() {
  read_all(browser_.channel(), [this](const Channel::Piece& piece) {
    if (!piece.text) return check_to_browser(*piece.message);
    note_text({piece.message->begin(), piece.message->end()});
  });
}

void SessionScript::check_to_browser(const Bytes& message) {
  const auto header = read_header(message);
  REQUIRE(header && allowed(*header, message, false));
  if (header->type == Msg::ClipboardData && message.size() > kEnvelopeHeaderSize) ++passed_["clip.sent"];
}

void SessionScript::note_text(const std::string& text) {
  const Json message = Json::parse(text, nullptr, false);
  REQUIRE(message.is_object());
  const std::string type = message.value("type", "");
  if (type == "session" && message.value("state", "") == "accepted") {
    for (const Json& name : message.at("rights"))
      past_rights_[message.at("session").get<std::uint32_t>()] |=
          right_of_name(name.get<std::string>()).value();
  }
  if (type == "transfer") transfers_.push_back(message.at("transfer").get<std::uint32_t>());
  for (const char* list : {"agents", "changed"}) {
    if (!message.contains(list)) continue;
    for (const Json& machine : message[list])
      REQUIRE(!machine.at("rights").empty());
  }
}

void SessionScript::finish() {
  browser_reads_ = true;
  settle();
  for (const World::Line& line : {agent_, browser_})
    line.ends.inbox->close();
  settle();
  world_.parts().sessions.end_all("relay-stopped");
  world_.settle();
  check_trail();
}

void SessionScript::check_trail() {
  REQUIRE(world_.logged().find("is lost") == std::string::npos);
  Database database(world_.file());
  const TrailVerdict verdict = verify_after_last_head(database);
  REQUIRE(verdict.intact);
  std::map<std::string, std::int64_t> rows;
  std::map<std::int64_t, std::map<std::string, int>> of_session;
  Statement all(database, "SELECT code, coalesce(session, 0) FROM trail");
  while (all.step()) {
    ++rows[all.text(0)];
    if (all.number(1) != 0) ++of_session[all.number(1)][all.text(0)];
  }
  for (const auto& [code, count] : passed_)
    REQUIRE(rows[code] >= count);
  REQUIRE(rows["file.started"] == rows["file.ended"]);
  for (auto& [session, codes] : of_session) {
    REQUIRE(codes["session.asked"] == 1 && codes["session.ended"] == 1);
    REQUIRE(codes["session.answered"] <= 1);
    // What is recorded of a session needs its acceptance.
    if (past_rights_.contains(static_cast<std::uint32_t>(session))) REQUIRE(codes["session.answered"] == 1);
  }
  // An agent that sends too fast is read slowly, so that its connection may still be open.
  const bool all_ended = std::ranges::all_of(served_, [](const auto& served) { return *served; });
  REQUIRE(rows["machine.lost"] <= rows["machine.connected"]);
  if (all_ended) REQUIRE(rows["machine.lost"] == rows["machine.connected"]);
}

}  // namespace vlk::relay::fuzz
