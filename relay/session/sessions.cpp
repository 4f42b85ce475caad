// Changes the states of sessions, and informs browser, machine and audit trail of each change.
#include "relay/session/sessions.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

Sessions::Sessions(Machines& machines, Browsers& browsers, Transfers& transfers, AuditTrail& audit,
                   const Log& log, const Limits& limits, std::uint32_t start)
    : machines_(machines),
      browsers_(browsers),
      transfers_(transfers),
      audit_(audit),
      log_(log),
      limits_(limits),
      last_number_(start),
      cuts_(limits.cuts_per_machine, limits.failure_window, limits.counted_keys) {}

std::uint32_t Sessions::new_number() {
  // A session's number is also the tag of its messages, so it must differ from the tag of the machine list.
  do {
    ++last_number_;
  } while (last_number_ == 0 || last_number_ == kListTag);
  return last_number_;
}

// No other function changes a session's state.
bool Sessions::apply(Session& session, SessionEvent event) {
  const auto next = next_state(session.state, event);
  if (next) session.state = *next;
  return next.has_value();
}

void Sessions::open(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id) {
  thread_.check();
  const auto refuse = [&](const std::string& sentence, const nlohmann::json& fields) {
    browsers_.refuse(*console, sentence, agent_id, fields);
  };
  const AgentRecord* machine = machines_.find(agent_id);
  if (!machine) return refuse("There is no such machine.", {{"code", "unknown"}});
  const auto agent = machines_.connection(agent_id);
  if (!agent) return refuse("\"" + machine->name + "\" is offline.", {{"code", "offline"}});
  if (const Session* other = session_with(agent_id)) {
    const std::string& who = other->console->representative;
    return refuse("\"" + machine->name + "\" is in use by " + who + ".",
                  {{"code", "in-use"}, {"representative", who}});
  }
  const auto own = numbers_where([&](const Session& session) { return session.console == console; });
  if (own.size() >= limits_.sessions_per_browser)
    return refuse("Too many sessions in one browser.", {{"code", "too-many"}});

  const Session session{new_number(), agent, console};
  sessions_[session.number] = session;
  machines_.mark_list_changed();
  agent->channel->send_binary(json_envelope(Msg::SessionRequest, session.number,
                                            dump(nlohmann::json{{"rep_name", console->representative}})));
  tell_browser(session, "waiting");
  log_.write(console->address, agent_id,
             "session " + std::to_string(session.number) + " requested by " + console->representative);
  audit_.write({"session-request", console->representative, agent_id, console->address,
                std::to_string(session.number)});
}

void Sessions::close(ConsolePeer& console, std::uint32_t number) {
  const Session* session = find(number);
  if (!session || session->console.get() != &console)
    return browsers_.refuse(console, "There is no such session.");
  end(number, SessionEvent::End, "closed", Tell::MachineToo);
}

void Sessions::cut(ConsolePeer& console, std::uint32_t number) {
  const Session* session = find(number);
  if (!session || session->console.get() != &console)
    return browsers_.refuse(console, "There is no such session.");
  const std::shared_ptr<AgentPeer> agent = session->agent;
  if (!session->accepted()) return browsers_.refuse(console, "The session has not been accepted.", agent->id);
  const auto now = Clock::now();
  if (cuts_.exhausted(agent->id, now)) {
    return browsers_.refuse(console, "This machine's connection was closed too often. Try again later.",
                            agent->id, {{"code", "too-many"}});
  }
  cuts_.add(agent->id, now);
  audit_.write({"agent-cut", console.representative, agent->id, console.address, std::to_string(number)});
  end_all_of(*agent, "agent-gone");
  agent->channel->cut("closed at the request of " + console.representative);
}

void Sessions::accept(AgentPeer& peer, std::uint32_t number) {
  thread_.check();
  Session* session = find_of(peer, number);
  if (!session) {
    return log_.write(peer.address, peer.id,
                      "accepted session " + std::to_string(number) + ", which was not requested");
  }
  if (!apply(*session, SessionEvent::Accept)) return;
  tell_browser(*session, "accepted");
  log_.write(peer.address, peer.id, "session " + std::to_string(number) + " accepted");
  audit_.write({"session-start", session->console->representative, peer.id, session->console->address,
                std::to_string(number)});
}

void Sessions::reject(AgentPeer& peer, std::uint32_t number) {
  const Session* session = find_of(peer, number);
  if (!session || !next_state(session->state, SessionEvent::Reject)) {
    return log_.write(peer.address, peer.id,
                      "rejected session " + std::to_string(number) + ", which is not waiting for an answer");
  }
  end(number, SessionEvent::Reject, "declined", Tell::BrowserOnly);
}

void Sessions::end_all_of(const AgentPeer& peer, const std::string& reason) {
  for (const std::uint32_t number : numbers_where([&](const Session& s) { return s.agent.get() == &peer; }))
    end(number, SessionEvent::End, reason, Tell::BrowserOnly);
}

void Sessions::end_all_of(const ConsolePeer& peer, const std::string& reason) {
  for (const std::uint32_t number : numbers_where([&](const Session& s) { return s.console.get() == &peer; }))
    end(number, SessionEvent::End, reason, Tell::MachineToo);
}

void Sessions::end_unanswered(Clock::time_point now) {
  const auto unanswered = [&](const Session& session) {
    return session.state == SessionState::Asked && now - session.asked >= limits_.consent;
  };
  for (const std::uint32_t number : numbers_where(unanswered))
    end(number, SessionEvent::End, "no-answer", Tell::MachineToo);
}

void Sessions::end(std::uint32_t number, SessionEvent event, const std::string& reason, Tell tell) {
  thread_.check();
  const auto found = sessions_.find(number);
  if (found == sessions_.end() || !apply(found->second, event)) return;
  const Session session = found->second;
  sessions_.erase(found);
  machines_.mark_list_changed();
  // Frames that are still queued for a slow browser are not needed after the session's end.
  session.console->channel->discard(number);
  tell_browser(session, "ended", reason);
  end_transfers(session, tell);
  if (tell == Tell::MachineToo)
    session.agent->channel->send_binary(json_envelope(Msg::SessionEnd, number, "{}"));
  log_.write(session.console->address, session.agent->id,
             "session " + std::to_string(number) + " ended: " + reason);
  audit_.write({"session-end", session.console->representative, session.agent->id, session.console->address,
                std::to_string(number) + " " + reason});
}

// A machine keeps an upload's file open until it receives the upload's end message, even after the session.
void Sessions::end_transfers(const Session& session, Tell tell) {
  const Transfers::Leftovers left = transfers_.end_session(session.number);
  for (const AuditNote& note : left.notes)
    audit_.note(session, note);
  transfers_.owe(session.agent->id, left.uploads, Clock::now());
  if (tell == Tell::BrowserOnly) return;
  for (const std::uint32_t upload : left.uploads)
    session.agent->channel->send_binary(upload_end(session.number, upload));
}

void Sessions::tell_browser(const Session& session, const std::string& state, const std::string& reason) {
  session.console->channel->send_text(session_message(session.number, session.agent->id, state, reason));
}

const Session* Sessions::find(std::uint32_t number) const {
  const auto found = sessions_.find(number);
  return found == sessions_.end() ? nullptr : &found->second;
}

Session* Sessions::find_of(const AgentPeer& peer, std::uint32_t number) {
  const auto found = sessions_.find(number);
  return found == sessions_.end() || found->second.agent.get() != &peer ? nullptr : &found->second;
}

const Session* Sessions::session_with(const std::string& agent_id) const {
  const auto found =
      std::ranges::find_if(sessions_, [&](const auto& entry) { return entry.second.agent->id == agent_id; });
  return found == sessions_.end() ? nullptr : &found->second;
}

template <class Condition>
std::vector<std::uint32_t> Sessions::numbers_where(Condition condition) const {
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions_) {
    if (condition(session)) numbers.push_back(number);
  }
  return numbers;
}

std::map<std::string, std::string> Sessions::representatives() const {
  std::map<std::string, std::string> result;
  for (const auto& entry : sessions_)
    result[entry.second.agent->id] = entry.second.console->representative;
  return result;
}

std::optional<std::int64_t> Sessions::round_trip(const ConsolePeer& console) const {
  for (const auto& entry : sessions_) {
    const Session& session = entry.second;
    if (session.console.get() == &console && session.accepted()) return session.agent->round_trip_ms;
  }
  return std::nullopt;
}

}  // namespace vlk::relay
