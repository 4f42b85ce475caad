// Opens sessions: who may have one, and the question to the machine.
#include <nlohmann/json.hpp>

#include "relay/session/table/sessions.h"
#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

std::uint32_t Sessions::new_number() {
  // A session's number is also the tag of its messages, so it must differ from the tag of the machine list.
  do {
    ++last_number_;
  } while (last_number_ == 0 || last_number_ == kListTag);
  return last_number_;
}

Rights Sessions::rights_on(const ConsolePeer& console, const std::string& agent_id) const {
  const MachineRecord* machine = machines_.find(agent_id);
  return machine ? people_.rights_of(console.person, machine->group) : kNoRights;
}

std::string Sessions::missing_for(const ConsolePeer& console, GroupId group,
                                  const std::string& reason) const {
  const Group* rules = people_.group(group);
  if (!rules) return {};
  if (rules->step_up && !logins_.stepped_up(console.login, wall_seconds())) return "step-up";
  if (rules->ask_reason && reason.find_first_not_of(' ') == std::string::npos) return "reason";
  return {};
}

std::string Sessions::not_to_be_asked(const std::string& agent_id) {
  const Questions::Ruling ruling = questions_.may_ask(agent_id, Clock::now());
  if (ruling == Questions::Ruling::Ask) return {};
  return ruling == Questions::Ruling::BoxStands ? "asked-already" : "asked-too-often";
}

void Sessions::restore_questions(const std::vector<OpenQuestion>& questions) {
  for (const OpenQuestion& question : questions) {
    questions_.restore(question.machine, question.session, Clock::now());
    machines_.set_asked(question.machine, true);
  }
}

// Why the relay refuses a request for a session with a machine that may be used at present.
bool Sessions::admit(ConsolePeer& console, const std::string& agent_id, const std::string& reason) {
  const auto refuse = [&](const std::string& sentence, const nlohmann::json& fields) {
    browsers_.refuse(console, sentence, agent_id, fields);
    return false;
  };
  const MachineRecord* machine = machines_.find(agent_id);
  // Who may not see a machine does not learn whether it exists.
  if (!machine || !is_listed(machine->state) || !(rights_on(console, agent_id) & kSee))
    return refuse("There is no such machine.", {{"code", "unknown"}});
  if (machine->state == MachineState::Quarantined) {
    return refuse("\"" + machine->name + "\" is in quarantine: " + machine->reason,
                  {{"code", "quarantined"}, {"reason", machine->reason}});
  }
  if (!machines_.connection(agent_id) && machines_.elsewhere(agent_id) != 0)
    return refuse("\"" + machine->name + "\" is connected to another relay.", {{"code", "elsewhere"}});
  if (!machines_.connection(agent_id))
    return refuse("\"" + machine->name + "\" is offline.", {{"code", "offline"}});
  if (session_with(agent_id, console.person)) {
    const std::string& who = console.representative;
    return refuse("\"" + machine->name + "\" is in use by " + who + ".",
                  {{"code", "in-use"}, {"representative", who}});
  }
  if (numbers_where([&](const Session& session) { return session.agent->id == agent_id; }).size() >=
      limits_.sessions_per_machine)
    return refuse("\"" + machine->name + "\" has too many sessions.", {{"code", "too-many"}});
  if (!has_room(console)) return refuse("Too many sessions are open.", {{"code", "too-many"}});
  if (const std::string missing = missing_for(console, machine->group, reason); !missing.empty()) {
    return refuse(missing == "reason" ? "Type why you need the session."
                                      : "Confirm with your password or a code first.",
                  {{"code", missing}});
  }
  if (const std::string code = not_to_be_asked(agent_id); !code.empty()) {
    return refuse(code == "asked-already" ? "An earlier question may still stand on the machine's screen."
                                          : "The machine's user was asked too often.",
                  {{"code", code}});
  }
  return true;
}

bool Sessions::has_room(const ConsolePeer& console) const {
  const auto own = [&](const Session& session) { return session.console->login == console.login; };
  return numbers_where(own).size() < limits_.sessions_per_login;
}

void Sessions::open(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id,
                    const std::string& reason) {
  thread_.check();
  const Session* known = session_with(agent_id, console->person);
  if (known && known->away) {
    if (known->console->login == console->login) return resume(console, known->number);
    end(known->number, SessionEvent::End, "moved", Tell::MachineToo);
  }
  if (!admit(*console, agent_id, reason)) return;

  Session session{new_number(), machines_.connection(agent_id), console};
  session.reason = reason;
  session.granted = rights_on(*console, agent_id);
  sessions_[session.number] = session;
  questions_.asked(agent_id, session.number);
  session.agent->channel->send_binary(json_envelope(
      Msg::SessionRequest, session.number, dump(nlohmann::json{{"rep_name", console->representative}})));
  tell_browser(session, "waiting");
  settle(session.agent);
  log_.write(console->address, agent_id,
             "session " + std::to_string(session.number) + " requested by " + console->representative);
  audit_.note(session, trail_entry<TrailKind::SessionAsked>(
                           {}, machines_.find(agent_id)->name,
                           reason.empty() ? std::nullopt : std::optional(reason), relay_));
}

}  // namespace vlk::relay
