// Holds sessions whose browser disconnected, and gives them to the browser that comes back.
#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/session/table/sessions.h"
#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

void Sessions::leave_browser(const Session& session) {
  session.console->channel->discard(session.number);
  release_input(session);
  downloads_.leave(session.number);
}

void Sessions::hold_all_of(const ConsolePeer& peer, Clock::time_point now) {
  thread_.check();
  for (const std::uint32_t number :
       numbers_where([&](const Session& s) { return s.console.get() == &peer; })) {
    Session& session = sessions_.at(number);
    session.away = now;
    if (limits_.hold == Clock::duration::zero()) {
      end(number, SessionEvent::End, "browser-gone", Tell::MachineToo);
      continue;
    }
    leave_browser(session);
    (void)apply(session, SessionEvent::Drop);
    log_.write(peer.address, session.agent->id, "session " + std::to_string(number) + " is held");
    audit_.note(session, trail_entry<TrailKind::SessionHeld>({}));
    settle(session.agent);
  }
}

void Sessions::report_end(ConsolePeer& console, std::uint32_t number) {
  const auto ending = std::ranges::find_if(
      endings_, [&](const Ending& e) { return e.number == number && e.login == console.login; });
  const bool known = ending != endings_.end();
  console.channel->send_text(session_message(number, known ? ending->agent : std::string(), "ended",
                                             {{"reason", known ? ending->reason : "gone"}}));
}

void Sessions::resume(const std::shared_ptr<ConsolePeer>& console, std::uint32_t number) {
  thread_.check();
  const auto found = sessions_.find(number);
  if (found == sessions_.end() || found->second.console->login != console->login)
    return report_end(*console, number);
  Session& session = found->second;
  const auto now = Clock::now();
  const std::string& agent_id = session.agent->id;
  if (session.console == console)
    return browsers_.refuse(*console, "This browser has the session already.", agent_id);
  if (resumes_.exhausted(agent_id, now)) {
    return browsers_.refuse(*console, "The session was resumed too often. Try again later.", agent_id,
                            {{"code", "resumed-too-often"}});
  }
  resumes_.add(agent_id, now);
  if (!session.away) {
    leave_browser(session);
    tell_browser(session, "ended", {{"reason", "moved"}});
  }
  const auto away = std::exchange(session.away, std::nullopt).value_or(now);
  session.console = console;
  session.stream_stopped = false;
  (void)apply(session, SessionEvent::Resume);
  log_.write(console->address, agent_id, "session " + std::to_string(number) + " is resumed");
  audit_.note(session, trail_entry<TrailKind::SessionResumed>(
                           {}, std::chrono::duration_cast<std::chrono::seconds>(now - away).count()));
  update_rights(session);
  nlohmann::json fields = {{"resumed", true}};
  if (!session.choices.empty()) fields["choices"] = nlohmann::json::parse(session.choices);
  const bool watches = session.agent->stream.watched_by(number);
  if (session.accepted()) {
    fields["streaming"] = watches && session.agent->recent.complete();
    fields["transfers"] = list_transfers(session);
    fields["unwanted"] = transfers_.unwanted(number);
    const UploadCounts::Totals uploads = uploads_.hand_over(number);
    fields["uploads"] = {{"taken", uploads.taken}, {"passed", uploads.passed}};
  }
  tell_browser(session, session.accepted() ? "accepted" : "waiting", std::move(fields));
  session.viewers.clear();
  settle(session.agent);
  if (session.accepted() && watches) show_recent(session);
}

void Sessions::show_recent(const Session& session) {
  const RecentPictures& recent = session.agent->recent;
  // Without them, the viewer could not show the stream's first picture, which may be on its way.
  if (!recent.settings()) return;
  Channel& channel = *session.console->channel;
  const auto send = [&](const std::shared_ptr<const Bytes>& bytes, PictureKind kind) {
    (void)channel.send_picture(bytes, session.number, kind, header_for(*bytes, session.number));
  };
  send(recent.settings(), PictureKind::Settings);
  for (const RecentPictures::Message& picture : recent.pictures())
    send(picture.bytes, picture.kind);
}

void Sessions::keep_choices(ConsolePeer& console, std::uint32_t number, std::string choices) {
  const auto found = sessions_.find(number);
  // The session may have ended before the browser learns of it.
  if (found == sessions_.end() || found->second.console.get() != &console) return;
  found->second.choices = std::move(choices);
}

void Sessions::tick(Clock::time_point now) {
  thread_.check();
  for (const std::string& machine : questions_.take_lost(now))
    machines_.set_asked(machine, false);
  const auto unanswered = [&](const Session& session) {
    return session.state == SessionState::Asked && now - session.asked >= limits_.consent;
  };
  for (const std::uint32_t number : numbers_where(unanswered)) {
    audit_.note(*find(number), trail_entry<TrailKind::SessionAnswered>({}, "none"));
    end(number, SessionEvent::End, "no-answer", Tell::MachineToo);
  }
  const auto abandoned = [&](const Session& session) {
    return session.away && now - *session.away >= limits_.hold;
  };
  for (const std::uint32_t number : numbers_where(abandoned))
    end(number, SessionEvent::End, "browser-gone", Tell::MachineToo);
  for (auto& [number, session] : sessions_) {
    if (session.state != SessionState::Held || session.stream_stopped) continue;
    if (now - *session.away >= limits_.held_stream && !is_seen(*session.agent)) stop_stream(session);
  }
}

// Pictures that nobody sees cost the machine and its line as much as others.
void Sessions::stop_stream(Session& session) {
  session.stream_stopped = true;
  session.agent->channel->send_binary(json_envelope(Msg::StreamStop, session.number, "{}"));
  continue_stream(*session.agent, session.number);
}

}  // namespace vlk::relay
