// Carries out the steps of an input.
#include "world/session_script.h"

#include <array>

#include "relay/wire/envelope.h"

namespace vlk::relay::fuzz {
namespace {

constexpr int kSteps = 48;

struct Sample {
  Msg type{};
  const char* payload = "";  // TRANSFER stands for the number of a transfer
};

constexpr Sample kAgentSamples[] = {
    {Msg::Hello, R"({"role":"agent"})"},
    {Msg::Login, R"({"agent_id":"machine-1","secret":"secret","name":"machine"})"},
    {Msg::Login, R"({"agent_id":"machine-1","secret":"wrong","name":"machine"})"},
    {Msg::Enroll, R"({"name":"new","machine_name":"NEW","os":"windows","hw_id":"hw"})"},
    {Msg::SessionAccept, "{}"},
    {Msg::SessionReject, "{}"},
    {Msg::NameUpdate, R"({"name":"renamed"})"},
    {Msg::Heartbeat, R"({"beat":1})"},
    {Msg::StreamConfig, R"({"codec":"h264","width":640,"height":480})"},
    {Msg::StreamFrame, "12345678picture"},
    {Msg::Thumbnail, "thumbnail"},
    {Msg::ClipboardData, "\1text"},
    {Msg::ClipboardData, "\3files"},
    {Msg::DirListResult, R"({"path":"C:\\","entries":[]})"},
    {Msg::FileChunk, "TRANSFER....bytes"},
    {Msg::FileTransferEnd, R"({"transfer_id":TRANSFER})"},
};

constexpr Sample kBrowserSamples[] = {
    {Msg::StreamStart, "{}"},
    {Msg::InputEvent, "input"},
    {Msg::ClipboardData, "\1text"},
    {Msg::ClipboardData, "\3files"},
    {Msg::DirListRequest, R"({"path":"C:\\"})"},
    {Msg::DownloadRequest, R"({"transfer_id":TRANSFER,"path":"C:\\a"})"},
    {Msg::UploadBegin, R"({"transfer_id":TRANSFER,"path":"C:\\b","size":5})"},
    {Msg::FileChunk, "TRANSFER....bytes"},
    {Msg::FileTransferEnd, R"({"transfer_id":TRANSFER})"},
    {Msg::Reboot, "{}"},
    {Msg::SecureAttention, "{}"},
    {Msg::SessionEnd, "{}"},
};

constexpr const char* kControls[] = {
    R"({"type":"open","agent":"machine-1"})",
    R"({"type":"open","agent":"machine-1","reason":"repair"})",
    R"({"type":"close","session":SESSION})",
    R"({"type":"cut","session":SESSION})",
    R"({"type":"transfer","session":SESSION,"request":1})",
    R"({"type":"stored","session":SESSION,"transfer":TRANSFER,"bytes":100})",
    R"({"type":"list"})",
    R"({"type":"ping","id":1})",
    R"({"type":"resume","session":SESSION})",
    R"({"type":"choices","session":SESSION,"choices":{"monitor":1}})",
    R"({"type":"stored","session":SESSION,"transfer":TRANSFER,"bytes":100,"end":true})",
    R"({"type":"continue","session":SESSION,"transfer":TRANSFER,"bytes":0})",
};

std::string with(std::string text, const std::string& name, const std::string& value) {
  const std::size_t at = text.find(name);
  return at == std::string::npos ? text : text.replace(at, name.size(), value);
}

std::string as_bytes(std::uint32_t number) {
  return {static_cast<char>(number >> 24), static_cast<char>(number >> 16), static_cast<char>(number >> 8),
          static_cast<char>(number)};
}

Bytes envelope(Msg type, std::uint32_t session, const std::string& payload) {
  return encode_envelope(type, session, reinterpret_cast<const unsigned char*>(payload.data()),
                         payload.size(), kJsonPayload);
}

Bytes sample_message(const Sample& sample, std::uint32_t session, std::uint32_t transfer) {
  const bool chunk = sample.type == Msg::FileChunk;
  const std::string number = chunk ? as_bytes(transfer) : std::to_string(transfer);
  const bool link = find_rule(sample.type)->scope == Scope::Link;
  return envelope(sample.type, link ? 0 : session, with(sample.payload, "TRANSFER", number));
}

template <class Samples>
const auto& chosen(const Samples& samples, std::uint8_t number) {
  return samples[number % std::size(samples)];
}

}  // namespace

void SessionScript::run() {
  if (input_.byte() % 2 == 0) {
    for (const std::size_t sample : {std::size_t{0}, std::size_t{1}})
      agent_.send(sample_message(kAgentSamples[sample], 0, 0));
    const std::string open = kControls[0];
    browser_.send({open.begin(), open.end()}, true);
    settle();
  }
  for (int i = 0; i < kSteps && !input_.empty(); ++i)
    step();
  finish();
}

void SessionScript::step() {
  switch (input_.byte() % 14) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
      lead();
      break;
    case 5:
      browser_sends_control();
      break;
    case 6:
      agent_leads_ ? browser_sends_known() : agent_sends_known();
      break;
    case 7:
      agent_.send(sample_message(kAgentSamples[4], session(), 0));  // accepts the session
      break;
    case 8:
      world_.set_rights(input_.byte() & kAllRights);
      break;
    case 9:
      reconnect();
      break;
    case 10:
      decide();
      break;
    case 11:
      pass_time();
      break;
    case 12:
      (void)world_.parts().sessions.end_for_administrator(session(), kAdministrator);
      break;
    default:
      browser_reads_ = !browser_reads_;
      was_slow_ = true;
  }
  settle();
}

void SessionScript::lead() {
  const std::uint8_t kind = input_.byte();
  if (agent_leads_) return kind % 4 == 0 ? agent_sends_any() : agent_sends_known();
  if (kind % 4 == 0) return browser_sends_any();
  kind % 4 == 1 ? browser_sends_control() : browser_sends_known();
}

void SessionScript::agent_sends_known() {
  const Sample& sample = chosen(kAgentSamples, input_.byte());
  agent_.send(sample_message(sample, session(), transfer()));
}

void SessionScript::agent_sends_any() {
  const std::uint8_t kind = input_.byte();
  if (kind == 0) return agent_.send(input_.bytes(), true);
  if (kind == 1) return agent_.send(input_.bytes());
  if (kind == 2) return agent_.send(envelope(Msg::StreamFrame, session(), std::string(1500, 'x')));
  agent_.send(envelope(static_cast<Msg>(kind), session(), input_.text()));
}

void SessionScript::browser_sends_known() {
  const Sample& sample = chosen(kBrowserSamples, input_.byte());
  browser_.send(sample_message(sample, session(), transfer()));
}

void SessionScript::browser_sends_any() {
  const std::uint8_t kind = input_.byte();
  if (kind == 0) return browser_.send(input_.bytes(), true);
  if (kind == 1) return browser_.send(input_.bytes());
  browser_.send(envelope(static_cast<Msg>(kind), session(), input_.text()));
}

void SessionScript::browser_sends_control() {
  std::string text = with(chosen(kControls, input_.byte()), "SESSION", std::to_string(session()));
  if (text.find("TRANSFER") != std::string::npos) text = with(text, "TRANSFER", std::to_string(transfer()));
  browser_.send({text.begin(), text.end()}, true);
}

void SessionScript::decide() {
  const MachineDecisions::By by{kAdministrator, "192.0.2.3:3000"};
  const MachineDecisions::Ids ids{kMachine};
  MachineDecisions& decisions = world_.decisions();
  const std::uint8_t which = input_.byte() % 6;
  try {
    if (which == 0) world_.decide(decisions.block(by, ids, "stolen"));
    if (which == 1) world_.decide(decisions.unblock(by, ids));
    if (which == 2) world_.decide(decisions.quarantine(by, ids, "infected"));
    if (which == 3) world_.decide(decisions.release(by, ids));
    if (which == 4) world_.decide(decisions.disconnect(by, ids));
    if (which == 5) world_.decide(decisions.remove(by, ids));
  } catch (const DecisionRefused&) {
  }
}

void SessionScript::reconnect() {
  const std::uint8_t how = input_.byte() % 3;
  if (how == 0) {
    browser_.ends.inbox->close();
    settle();
    browser_ = world_.connect_browser();
    return;
  }
  if (how == 1) agent_.ends.inbox->close();  // otherwise the new connection replaces the old one
  settle();
  agent_ = connect_agent();
  for (const std::size_t sample : {std::size_t{0}, std::size_t{1}})
    agent_.send(sample_message(kAgentSamples[sample], 0, 0));
}

void SessionScript::pass_time() {
  world_.parts().watchdog.tick(Clock::now() + std::chrono::seconds(input_.byte()));
}

std::uint32_t SessionScript::session() {
  const std::uint8_t number = input_.byte();
  if (number >= 0xF0) return number;
  return sessions_.empty() ? 0 : sessions_[sessions_.size() - 1 - number % sessions_.size()];
}

std::uint32_t SessionScript::transfer() {
  const std::uint8_t number = input_.byte();
  if (number >= 0xF0) return number;
  return transfers_.empty() ? 0 : transfers_[transfers_.size() - 1 - number % transfers_.size()];
}

World::Line SessionScript::connect_agent() {
  World::Line line = world_.connect_agent();
  served_.push_back(line.served);
  return line;
}

void SessionScript::settle() {
  world_.settle();
  check_sessions();
  read_agent();
  if (browser_reads_) read_browser();
  world_.settle();  // the coroutines that waited for room go on
  check_sessions();
  read_agent();
  if (browser_reads_) read_browser();
}

}  // namespace vlk::relay::fuzz
