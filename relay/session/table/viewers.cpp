// The sessions of several representatives with one machine: who steers, what each may do, and the one stream.
#include <algorithm>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/session/table/sessions.h"
#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

constexpr std::chrono::seconds kAskAgain{30};  // after a refusal

// What a session that does not steer may do. The others would otherwise work against each other.
constexpr Rights kWatching = kSee | kFilesUp | kFilesDown | kForget;

std::size_t count_people(const std::vector<Session*>& viewers) {
  std::set<std::int64_t> people;
  for (const Session* viewer : viewers) {
    if (!viewer->away) people.insert(viewer->console->person);
  }
  return people.size();
}

}  // namespace

void Sessions::send_orders(AgentPeer& agent, const SharedStream::Orders& orders) {
  for (const SharedStream::Order& order : orders)
    agent.channel->send_binary(json_envelope(order.type, order.session, order.json));
}

std::vector<Session*> Sessions::viewers_of(const AgentPeer& agent) {
  std::vector<Session*> viewers;
  for (auto& entry : sessions_) {
    if (entry.second.agent.get() == &agent && entry.second.running()) viewers.push_back(&entry.second);
  }
  return viewers;
}

bool Sessions::is_seen(const AgentPeer& agent) const {
  bool seen = false;
  each_viewer(agent, 0, [&](const Session&) { seen = true; });
  return seen;
}

bool Sessions::wants_four_eyes(const AgentPeer& agent) const {
  const MachineRecord* machine = machines_.find(agent.id);
  const Group* group = machine ? people_.group(machine->group) : nullptr;
  return group && group->four_eyes;
}

Rights Sessions::rights_in_effect(const Session& session, bool four_eyes_missing) const {
  if (four_eyes_missing) return session.granted & (kSee | kForget);
  return session.agent->steering == session.number ? session.granted : session.granted & kWatching;
}

void Sessions::update_rights(Session& session) {
  AgentPeer& agent = *session.agent;
  report_eyes(agent, viewers_of(agent));
  session.rights = session.running() ? rights_in_effect(session, agent.eyes_missing) : kNoRights;
}

void Sessions::settle(const std::shared_ptr<AgentPeer>& agent) {
  const std::vector<Session*> viewers = viewers_of(*agent);
  choose_steering(*agent, viewers);
  report_eyes(*agent, viewers);
  for (Session* viewer : viewers) {
    const Rights rights = rights_in_effect(*viewer, agent->eyes_missing);
    if (rights != viewer->rights) set_rights(*viewer, rights);
  }
  send_orders(*agent, agent->stream.lead(agent->steering));
  tell_viewers(*agent, viewers);
  std::string shown;
  std::size_t sessions = 0;
  for (const auto& [number, session] : sessions_) {
    if (session.agent != agent) continue;
    ++sessions;
    if (shown.empty() || number == agent->steering) shown = session.console->representative;
  }
  machines_.set_representative(agent->id, shown, sessions > 0 ? sessions - 1 : 0);
}

// When the session that steers has ended, the first who has asked steers. Otherwise nobody does until
// somebody asks: a hand on a mouse that suddenly moves the machine's pointer would be a surprise.
void Sessions::choose_steering(AgentPeer& agent, const std::vector<Session*>& viewers) {
  const auto steers = [&](const Session* viewer) { return viewer->number == agent.steering; };
  if (std::ranges::any_of(viewers, steers)) return;
  const Session* next = nullptr;
  for (const Session* viewer : viewers) {
    if (!viewer->asks || viewer->away) continue;
    if (!next || viewer->asks_since < next->asks_since) next = viewer;
  }
  agent.steering = 0;
  if (next) set_steering(agent, next->number);
}

void Sessions::set_steering(AgentPeer& agent, std::uint32_t number) {
  const Session* before = find(std::exchange(agent.steering, number));
  Session& session = sessions_.at(number);
  session.asks = false;
  audit_.note(session, trail_entry<TrailKind::SessionTakenOver>(
                           {}, before ? before->console->representative : std::string()));
}

// Each change costs the machine a new stream and the audit trail an entry. Nobody's changes use up those of
// the others, so an administrator can take the steering from two people who exchange it.
void Sessions::change_steering(ConsolePeer& console, AgentPeer& agent, std::uint32_t number) {
  const auto now = Clock::now();
  const std::string key = agent.id + ' ' + std::to_string(console.person);
  if (changes_of_steering_.exhausted(key, now)) {
    return browsers_.refuse(console, "You have changed who controls too often. Try again later.", agent.id,
                            {{"code", "steering-changed-too-often"}});
  }
  changes_of_steering_.add(key, now);
  set_steering(agent, number);
}

void Sessions::report_eyes(AgentPeer& agent, const std::vector<Session*>& viewers) {
  const bool wanted = wants_four_eyes(agent);
  const bool missing = wanted && count_people(viewers) < 2;
  if (missing == agent.eyes_missing) return;
  agent.eyes_missing = missing;
  if (!wanted) return;
  for (const Session* viewer : viewers)
    audit_.note(*viewer, trail_entry<TrailKind::SessionFourEyes>({}, missing ? "missing" : "met"));
}

void Sessions::tell_viewers(const AgentPeer& agent, const std::vector<Session*>& viewers) {
  nlohmann::json list = nlohmann::json::array();
  for (const Session* viewer : viewers) {
    list.push_back({{"session", viewer->number},
                    {"name", viewer->console->representative},
                    {"steers", viewer->number == agent.steering},
                    {"asks", viewer->asks},
                    {"control", (viewer->granted & kControl) != 0},
                    {"away", viewer->away.has_value()}});
  }
  const StreamChoices& stream = agent.stream.choices();
  nlohmann::json shown = {{"monitor", stream.monitor},
                          {"max_fps", stream.max_fps},
                          {"bitrate", stream.bitrate},
                          {"codec", stream.jpeg ? "mjpeg" : "h264"},
                          {"pointer", stream.pointer}};
  if (const auto preset = agent.quality.preset()) shown["preset"] = preset_name(*preset);
  for (Session* viewer : viewers) {
    if (!viewer->accepted()) continue;
    std::string text = dump(nlohmann::json{{"type", "viewers"},
                                           {"session", viewer->number},
                                           {"viewers", list},
                                           {"stream", shown},
                                           {"four_eyes_missing", agent.eyes_missing}});
    if (text == viewer->viewers) continue;
    viewer->console->channel->send_text(text);
    viewer->viewers = std::move(text);
  }
}

Session* Sessions::running_session_of(ConsolePeer& console, std::uint32_t number) {
  const auto found = sessions_.find(number);
  if (found != sessions_.end() && found->second.console.get() == &console && found->second.accepted())
    return &found->second;
  browsers_.refuse(console, "There is no such session.");
  return nullptr;
}

void Sessions::ask_to_steer(ConsolePeer& console, std::uint32_t number) {
  thread_.check();
  Session* session = running_session_of(console, number);
  if (!session) return;
  AgentPeer& agent = *session->agent;
  if (agent.steering == number) return;
  const Session* holder = find(agent.steering);
  const bool usable =
      holder && !holder->away && ((holder->granted & kControl) || !(session->granted & kControl));
  if (!usable) {
    change_steering(console, agent, number);
  } else if (const auto now = Clock::now(); !session->asks && now >= session->ask_again) {
    session->asks = true;
    session->asks_since = now;
  }
  settle(session->agent);
}

void Sessions::hand_over(ConsolePeer& console, std::uint32_t number, std::uint32_t to) {
  thread_.check();
  const Session* session = running_session_of(console, number);
  if (!session || session->agent->steering != number || number == to) return;
  const Session* next = find(to);
  if (!next || next->agent != session->agent || !next->accepted()) return;
  change_steering(console, *session->agent, to);
  settle(session->agent);
}

void Sessions::refuse_steering(ConsolePeer& console, std::uint32_t number, std::uint32_t to) {
  thread_.check();
  const Session* session = running_session_of(console, number);
  if (!session || session->agent->steering != number) return;
  const auto asking = sessions_.find(to);
  if (asking == sessions_.end() || asking->second.agent != session->agent || !asking->second.asks) return;
  asking->second.asks = false;
  asking->second.ask_again = Clock::now() + kAskAgain;
  settle(session->agent);
}

void Sessions::take_over(ConsolePeer& console, std::uint32_t number) {
  thread_.check();
  const Session* session = running_session_of(console, number);
  if (!session || session->agent->steering == number) return;
  const Person* person = people_.person(console.person);
  if (!person || person->role != Role::Administrator) {
    return browsers_.refuse(console, "Only an administrator may take the control.", session->agent->id,
                            {{"code", kNoRightCode}});
  }
  change_steering(console, *session->agent, number);
  settle(session->agent);
}

void Sessions::report_stream(std::uint32_t number) {
  if (const Session* session = find(number)) tell_viewers(*session->agent, viewers_of(*session->agent));
}

void Sessions::watch(std::uint32_t number) {
  const Session* session = find(number);
  if (!session || !session->running()) return;
  AgentPeer& agent = *session->agent;
  if (!agent.stream.watched_by(number)) send_orders(agent, agent.stream.join(number));
  if (session->accepted()) show_recent(*session);
}

void Sessions::continue_stream(AgentPeer& agent, std::uint32_t ended) {
  send_orders(agent, agent.stream.stopped(ended, agent.steering));
  if (agent.stream.leader() == 0) agent.recent.clear();
}

}  // namespace vlk::relay
