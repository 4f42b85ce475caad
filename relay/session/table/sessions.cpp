// Carries out the answers and ends of sessions, and informs browser, machine and audit trail.
#include "relay/session/table/sessions.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

Sessions::Sessions(const People& people, const Logins& logins, Machines& machines, Browsers& browsers,
                   Transfers& transfers, Downloads& downloads, UploadCounts& uploads, PressedInput& pressed,
                   AuditTrail& audit, ClipNotes& clips, const Log& log, const Limits& limits,
                   std::uint32_t start)
    : people_(people),
      logins_(logins),
      machines_(machines),
      browsers_(browsers),
      transfers_(transfers),
      downloads_(downloads),
      uploads_(uploads),
      pressed_(pressed),
      audit_(audit),
      clips_(clips),
      log_(log),
      limits_(limits),
      last_number_(start),
      cuts_(limits.cuts_per_machine, limits.failure_window, limits.counted_keys),
      resumes_(limits.resumes_per_machine, limits.failure_window, limits.counted_keys),
      changes_of_steering_(limits.changes_of_steering, limits.failure_window, limits.counted_keys),
      questions_(
          {limits.lost_question, limits.refused_questions, limits.question_window, limits.counted_keys}) {
  audit_.on_lost_evidence(
      [this](std::uint32_t number) { end(number, SessionEvent::End, "no-evidence", Tell::MachineToo); });
}

// No other function changes a session's state.
bool Sessions::apply(Session& session, SessionEvent event) {
  const auto next = next_state(session.state, event);
  if (next) session.state = *next;
  return next.has_value();
}

void Sessions::close(ConsolePeer& console, std::uint32_t number) {
  const Session* session = find(number);
  const bool held = session && session->away && session->console->login == console.login;
  if (!session || (session->console.get() != &console && !held))
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
  audit_.note(*session, trail_entry<TrailKind::SessionCut>({}));
  end_all_of(*agent, "agent-gone");
  agent->channel->cut("closed at the request of " + console.representative);
}

void Sessions::note_answer(const AgentPeer& peer, std::uint32_t number, bool accepted) {
  questions_.answered(peer.id, number, accepted, Clock::now());
  machines_.set_asked(peer.id, questions_.stands(peer.id));
}

void Sessions::accept(AgentPeer& peer, std::uint32_t number) {
  thread_.check();
  note_answer(peer, number, true);
  Session* session = find_of(peer, number);
  if (!session) {
    return log_.write(peer.address, peer.id,
                      "accepted session " + std::to_string(number) + ", which was not requested");
  }
  if (!apply(*session, SessionEvent::Accept)) return;
  if (session->away) (void)apply(*session, SessionEvent::Drop);
  const bool streams = peer.stream.leader() != 0;
  if (viewers_of(peer).size() == 1) peer.steering = number;
  update_rights(*session);
  // A stream that others watch already needs no request of this browser.
  tell_browser(*session, "accepted",
               streams ? nlohmann::json{{"streaming", true}} : nlohmann::json::object());
  settle(session->agent);
  if (streams) watch(number);
  log_.write(peer.address, peer.id, "session " + std::to_string(number) + " accepted");
  audit_.note(*session, trail_entry<TrailKind::SessionAnswered>({}, "accepted"));
}

bool Sessions::end_for_administrator(std::uint32_t number, const std::string& administrator) {
  const Session* session = find(number);
  if (!session) return false;
  const TrailSubject subject{.actor = administrator, .machine = session->agent->id, .session = number};
  audit_.write(trail_entry<TrailKind::SessionClosed>(subject, session->console->representative));
  end(number, SessionEvent::End, "ended-by-administrator", Tell::MachineToo);
  return true;
}

void Sessions::refresh_rights() {
  thread_.check();
  const auto blind = [&](const Session& session) {
    return !(rights_on(*session.console, session.agent->id) & kSee);
  };
  for (const std::uint32_t number : numbers_where(blind))
    end(number, SessionEvent::End, kNoRightCode, Tell::MachineToo);
  std::set<std::shared_ptr<AgentPeer>> machines;
  std::map<std::uint32_t, Rights> regranted;  // the rights in effect of those whose other rights have changed
  for (auto& [number, session] : sessions_) {
    const Rights granted = rights_on(*session.console, session.agent->id);
    if (std::exchange(session.granted, granted) != granted) regranted[number] = session.rights;
    machines.insert(session.agent);
  }
  for (const auto& machine : machines)
    settle(machine);
  // The browser shows which rights have no effect at present.
  for (const auto& [number, before] : regranted) {
    const Session* session = find(number);
    if (session && session->accepted() && session->rights == before) tell_browser(*session, "accepted");
  }
}

void Sessions::set_rights(Session& session, Rights rights) {
  const Rights lost = session.rights & ~rights;
  session.rights = rights;
  if (lost & kControl) release_input(session);
  if (!session.running()) return;
  if (session.accepted()) tell_browser(session, "accepted");
  if (lost & (kFilesUp | kFilesDown)) cut_transfers(session, lost & kFilesUp, lost & kFilesDown);
}

void Sessions::reject(AgentPeer& peer, std::uint32_t number) {
  note_answer(peer, number, false);
  const Session* session = find_of(peer, number);
  if (!session || !next_state(session->state, SessionEvent::Reject)) {
    return log_.write(peer.address, peer.id,
                      "rejected session " + std::to_string(number) + ", which is not waiting for an answer");
  }
  audit_.note(*session, trail_entry<TrailKind::SessionAnswered>({}, "declined"));
  end(number, SessionEvent::Reject, "declined", Tell::BrowserOnly);
}

void Sessions::end_all_of(const AgentPeer& peer, const std::string& reason, bool stays_connected) {
  const Tell tell = stays_connected ? Tell::MachineToo : Tell::BrowserOnly;
  for (const std::uint32_t number : numbers_where([&](const Session& s) { return s.agent.get() == &peer; }))
    end(number, SessionEvent::End, reason, tell);
}

void Sessions::end_all_of(const Bytes& login, const std::string& reason) {
  for (const std::uint32_t number :
       numbers_where([&](const Session& s) { return s.console->login == login; }))
    end(number, SessionEvent::End, reason, Tell::MachineToo);
}

void Sessions::end_all(const std::string& reason) {
  for (const std::uint32_t number : numbers_where([](const Session&) { return true; }))
    end(number, SessionEvent::End, reason, Tell::MachineToo);
}

void Sessions::end(std::uint32_t number, SessionEvent event, const std::string& reason, Tell tell) {
  thread_.check();
  const auto found = sessions_.find(number);
  if (found == sessions_.end() || !apply(found->second, event)) return;
  const Session session = found->second;
  sessions_.erase(found);
  questions_.unanswered(session.agent->id, number, Clock::now());
  machines_.set_asked(session.agent->id, questions_.stands(session.agent->id));
  // Frames that are still queued for a slow browser are not needed after the session's end.
  session.console->channel->discard(number);
  tell_browser(session, "ended", {{"reason", reason}});
  endings_.push_back({number, session.console->login, session.agent->id, reason});
  if (endings_.size() > kEndings) endings_.pop_front();
  if (tell == Tell::MachineToo) release_input(session);
  pressed_.forget(number);
  end_transfers(session, tell);
  if (tell == Tell::MachineToo) {
    session.agent->channel->send_binary(json_envelope(Msg::SessionEnd, number, "{}"));
    continue_stream(*session.agent, number);
  }
  settle(session.agent);
  log_.write(session.console->address, session.agent->id,
             "session " + std::to_string(number) + " ended: " + reason);
  uploads_.end(number);
  clips_.end(session);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - session.asked).count();
  audit_.note(session, trail_entry<TrailKind::SessionEnded>({}, reason, seconds));
}

void Sessions::release_input(const Session& session) {
  if (const auto releases = pressed_.release(session.number)) session.agent->channel->send_binary(releases);
}

void Sessions::tell_browser(const Session& session, const std::string& state) {
  tell_browser(session, state, nlohmann::json::object());
}

void Sessions::tell_browser(const Session& session, const std::string& state, nlohmann::json fields) {
  if (state == "accepted") {
    fields["rights"] = right_names(session.rights);
    if (session.granted != session.rights) fields["granted"] = right_names(session.granted);
  }
  if (state == "waiting") {
    const auto left = limits_.consent - (Clock::now() - session.asked);
    fields["seconds"] = std::max<std::int64_t>(0, std::chrono::round<std::chrono::seconds>(left).count());
  }
  session.console->channel->send_text(session_message(session.number, session.agent->id, state, fields));
}

const Session* Sessions::find(std::uint32_t number) const {
  const auto found = sessions_.find(number);
  return found == sessions_.end() ? nullptr : &found->second;
}

Session* Sessions::find_of(const AgentPeer& peer, std::uint32_t number) {
  const auto found = sessions_.find(number);
  return found == sessions_.end() || found->second.agent.get() != &peer ? nullptr : &found->second;
}

Session* Sessions::session_with(const std::string& agent_id, PersonId person) {
  const auto found = std::ranges::find_if(sessions_, [&](const auto& entry) {
    return entry.second.agent->id == agent_id && entry.second.console->person == person;
  });
  return found == sessions_.end() ? nullptr : &found->second;
}

std::optional<std::int64_t> Sessions::round_trip(const ConsolePeer& console) const {
  for (const auto& entry : sessions_) {
    const Session& session = entry.second;
    if (session.console.get() != &console || !session.accepted()) continue;
    const auto measured = session.agent->heartbeats.round_trip();
    return measured ? std::optional(measured->count()) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace vlk::relay
