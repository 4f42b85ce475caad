// Machines for representatives, sessions, log-ins, settings.
#include <algorithm>

#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kTicketBytes = 32;

const char* state_name(SessionState state) {
  if (state == SessionState::Held) return "held";
  return state == SessionState::Accepted ? "accepted" : "waiting";
}

constexpr std::int64_t kLongestHours = 24 * 31;
// The warning comes a minute before the end, so a limit of one minute would warn all the time.
constexpr std::int64_t kShortestIdle = 2;
constexpr std::int64_t kLongestIdle = 24 * 60;
constexpr std::int64_t kLongestRetention = 36500;

bool administers(const Call& call) {
  return call.caller.role == Role::Administrator;
}

Json settings_json(const Api& api) {
  const RelaySettings settings = api.parts.people.settings(api.limits);
  Json roles = Json::array();
  for (const Role role : settings.totp_required)
    roles.push_back(role_name(role));
  return {{"totp_required", roles},
          {"login_hours", settings.login_seconds / 3600},
          {"idle_minutes", settings.idle_seconds / 60},
          {"retention_days", settings.retention_days}};
}

// The stored text of a setting. Throws ApiError if the value is not valid.
std::string setting_text(const Json& body, const std::string& key) {
  if (key == "login_hours") return std::to_string(number_in(body, "login_hours", 1, kLongestHours));
  if (key == "idle_minutes") {
    const std::int64_t minutes = number_in(body, "idle_minutes", 0, kLongestIdle);
    if (minutes == 0 || minutes >= kShortestIdle) return std::to_string(minutes);
    throw ApiError(HttpStatus::bad_request, "The time without use is 2 minutes or more, or 0 for no limit.");
  }
  if (key == "retention_days") return std::to_string(number_in(body, "retention_days", 0, kLongestRetention));
  if (key != "totp_required" || !body[key].is_array())
    throw ApiError(HttpStatus::bad_request, "There is no such setting.");
  for (const Json& role : body[key]) {
    if (!role.is_string() || !role_of(role.get<std::string>()))
      throw ApiError(HttpStatus::bad_request, "There is no such role.");
  }
  return body[key].dump();
}

}  // namespace

// The machines that the caller may see.
JsonReply list_agents(Api& api, Call& call) {
  Json visible = Json::array();
  const auto view = api.parts.view_of(call.caller.person);
  for (const auto& [id, record] : api.parts.machines.records()) {
    std::string fields;
    if (!view->shows(record, fields)) continue;
    Json machine = Json::parse(api.parts.machines.entry(id));
    machine.update(Json::parse('{' + fields + '}'));
    visible.push_back(std::move(machine));
  }
  co_return Json{{"agents", visible}};
}

JsonReply list_updates(Api& api, Call&) {
  co_return api.updates.report();
}

JsonReply show_status(Api& api, Call&) {
  if (!api.status) not_found();
  co_return api.status();
}

// Leads the browser to the relay to which the machine is connected.
JsonReply give_ticket(Api& api, Call& call) {
  const std::string id = text_in(call.body, "machine");
  const MachineRecord* machine = api.parts.machines.find(id);
  const Rights rights = machine ? api.parts.people.rights_of(call.caller.person, machine->group) : kNoRights;
  const RelayRow* relay = rights & kSee ? api.parts.cluster.relay_of(id) : nullptr;
  if (!relay) throw ApiError(HttpStatus::not_found, "The machine is not connected to another relay.");
  const Login* login = api.parts.logins.find(call.caller.token_hash, wall_seconds());
  if (!login) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  // The request came from the relay's own page, whose origin is one of the relay's names.
  const std::string origin(call.request.at(boost::beast::http::field::origin));
  const std::string ticket = random_token(kTicketBytes);
  const auto job = [hash = hash_secret(ticket), valid = Ticket{relay->id, login->row.id, origin}](
                       Store& store) { return add_ticket(store.database(), hash, valid); };
  const Json answer = {{"address", relay->address}, {"ticket", ticket}};
  if (!co_await api.parts.database.run(job))
    throw ApiError(HttpStatus::too_many_requests, "Too many machines at other relays were opened. Try again.",
                   "busy");
  co_return answer;
}

JsonReply forget_agent(Api& api, Call& call) {
  const std::string id = call.key;
  const MachineRecord* machine = api.parts.machines.find(id);
  const Rights rights = machine ? api.parts.people.rights_of(call.caller.person, machine->group) : kNoRights;
  if (!(rights & kSee)) throw ApiError(HttpStatus::not_found, "There is no such machine.");
  if (!(rights & kForget))
    throw ApiError(HttpStatus::forbidden, "You do not have the right to forget this machine.", "no-right");
  TrailSubject subject = call.subject();
  subject.machine = id;
  const auto row = trail_entry<TrailKind::MachineForgotten>(subject, machine->name);
  switch (co_await api.parts.machines.forget(id, row)) {
    case Machines::Forgotten::Done:
      api.parts.transfers.settle(id, Clock::time_point::max());
      co_return Json::object();
    case Machines::Forgotten::Connected:
      throw ApiError(HttpStatus::conflict,
                     "The machine is connected; only an offline machine can be forgotten.");
    case Machines::Forgotten::Unknown:
      break;
  }
  throw ApiError(HttpStatus::not_found, "There is no such machine.");
}

JsonReply list_sessions(Api& api, Call&) {
  Json list = Json::array();
  for (const auto& [number, session] : api.parts.sessions.all()) {
    const MachineRecord* machine = api.parts.machines.find(session.agent->id);
    const PictureWay* way = api.parts.measures.of(number);
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - session.asked).count();
    list.push_back({{"session", number},
                    {"agent", session.agent->id},
                    {"machine", machine ? machine->name : std::string()},
                    {"person", session.console->representative},
                    {"state", state_name(session.state)},
                    {"since", wall_seconds() - age},
                    {"reason", session.reason},
                    {"address", session.console->address},
                    {"picture", way ? way_json(*way) : Json(nullptr)}});
  }
  co_return Json{{"sessions", list}};
}

JsonReply end_session(Api& api, Call& call) {
  const std::int64_t number = id_of(call);
  if (number > UINT32_MAX ||
      !api.parts.sessions.end_for_administrator(static_cast<std::uint32_t>(number), call.caller.name))
    not_found();
  co_return Json::object();
}

JsonReply list_logins(Api& api, Call& call) {
  Json list = Json::array();
  for (const Login* login : api.parts.logins.all()) {
    if (!administers(call) && login->row.person != call.caller.person) continue;
    const Person* person = api.parts.people.person(login->row.person);
    list.push_back({{"id", login->row.id},
                    {"person", person ? person->name : std::string()},
                    {"stage", stage_name(login->row.stage)},
                    {"address", login->row.address},
                    {"created_at", login->row.created_at},
                    {"last_used", login->row.last_used},
                    {"expires_at", Logins::ends_at(*login)},
                    {"own", login->row.token_hash == call.caller.token_hash}});
  }
  co_return Json{{"logins", list}};
}

JsonReply end_login(Api& api, Call& call) {
  const Login* login = api.parts.logins.find_id(id_of(call));
  if (!login || (!administers(call) && login->row.person != call.caller.person)) not_found();
  const Person* person = api.parts.people.person(login->row.person);
  const bool own = login->row.person == call.caller.person;
  const std::string reason = own ? "the log-in was ended" : "an administrator ended the log-in";
  const auto entry =
      trail_entry<TrailKind::LoginEnded>(call.subject(), own ? "log-out" : "administrator",
                                         own || !person ? std::nullopt : std::optional(person->name));
  const Bytes hash = login->row.token_hash;
  const auto job = [hash, entry](Store& store) {
    remove_login(store.database(), hash);
    append_trail(store.database(), std::span(&entry, 1));
  };
  co_await api.parts.database.run(job);
  api.parts.logins.end(hash, reason);
  co_return Json::object();
}

JsonReply show_settings(Api& api, Call&) {
  co_return settings_json(api);
}

JsonReply change_settings(Api& api, Call& call) {
  if (!call.body.is_object()) throw ApiError(HttpStatus::bad_request, "The settings are missing.");
  const Json before = settings_json(api);
  std::vector<Setting> settings;
  std::vector<TrailEntry> entries;
  for (const auto& [key, value] : call.body.items()) {
    const std::string text = setting_text(call.body, key);
    if (before[key].dump() == text) continue;
    entries.push_back(trail_entry<TrailKind::SettingsChanged>(call.subject(), key, text, before[key].dump()));
    settings.push_back({key, text});
  }
  const auto work = [settings](Database& database) {
    for (const Setting& setting : settings)
      store_setting(database, setting);
  };
  co_await change(api, work, entries);
  co_return settings_json(api);
}

}  // namespace vlk::relay
