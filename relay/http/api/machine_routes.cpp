// Machines as administrators see them, the decisions about them, and enrolment windows.
#include <algorithm>
#include <map>

#include "relay/admission/machine_decisions.h"
#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

// The largest number of other machines with the same hardware id that are named.
constexpr std::size_t kSameHardware = 10;

using ByHardware = std::map<std::string_view, std::vector<std::string_view>>;

// The machines' ids by their hardware ids. A machine that sent no hardware id is left out.
ByHardware by_hardware(const Machines& machines) {
  ByHardware result;
  for (const auto& [id, record] : machines.records()) {
    if (!record.hw_id.empty()) result[record.hw_id].push_back(id);
  }
  return result;
}

Json same_hardware(const ByHardware& all, const MachineRecord& record) {
  Json ids = Json::array();
  const auto found = all.find(record.hw_id);
  if (found == all.end()) return ids;
  for (const std::string_view id : found->second) {
    if (id != record.id && ids.size() < kSameHardware) ids.push_back(id);
  }
  return ids;
}

// The state by which the console sorts machines. A machine that is used twice is held back like one in
// quarantine, and a refused machine is blocked.
std::string_view shown_state(MachineState state) {
  if (state == MachineState::UsedTwice) return state_name(MachineState::Quarantined);
  if (state == MachineState::Refused) return state_name(MachineState::Blocked);
  return state_name(state);
}

Json machine_json(const Api& api, const MachineRecord& record, const ByHardware& hardware) {
  const auto peer = api.parts.machines.connection(record.id);
  Json json = {{"id", record.id},
               {"name", record.name},
               {"machine", record.machine},
               {"os", record.os},
               {"state", shown_state(record.state)},
               {"refused", record.state == MachineState::Refused},
               {"used_twice", record.state == MachineState::UsedTwice},
               {"connected", peer != nullptr},
               {"representative", Json::parse(api.parts.machines.entry(record.id))["representative"]},
               {"reason", record.reason},
               {"state_since", record.state_since},
               {"state_by", record.state_by},
               {"group", record.group},
               {"address", peer ? peer->address : record.enrolled_from},
               {"hw_id", record.hw_id},
               {"enrolled_at", record.enrolled_at},
               {"enrolled_from", record.enrolled_from},
               {"last_seen", peer ? wall_seconds() : record.last_seen},
               {"same_hardware", same_hardware(hardware, record)}};
  if (record.state == MachineState::Waiting) json["group"] = nullptr;
  return json;
}

// The machines' ids in the request.
MachineDecisions::Ids machine_ids(const Json& body) {
  const auto found = body.find("ids");
  const auto is_text = [](const Json& id) { return id.is_string(); };
  if (found == body.end() || !found->is_array() || !std::ranges::all_of(*found, is_text))
    throw ApiError(HttpStatus::bad_request, "The list of machines is missing.");
  return found->get<MachineDecisions::Ids>();
}

std::optional<std::int64_t> optional_number(const Json& body, const char* key) {
  const auto found = body.find(key);
  if (found == body.end() || found->is_null()) return std::nullopt;
  if (!found->is_number_integer())
    throw ApiError(HttpStatus::bad_request, std::string("\"") + key + "\" is not a number.");
  return found->get<std::int64_t>();
}

HttpStatus status_of(DecisionRefused::Why why) {
  if (why == DecisionRefused::Why::Unknown) return HttpStatus::not_found;
  return why == DecisionRefused::Why::Conflict ? HttpStatus::conflict : HttpStatus::bad_request;
}

// A function that makes a decision about the machines in the request.
using Decision = MachineDecisions::Done (*)(MachineDecisions&, const MachineDecisions::By&, const Json&);

JsonReply decide(Api& api, Call& call, Decision decision) {
  MachineDecisions decisions(api.parts, api.admission);
  try {
    const MachineDecisions::By by{call.caller.name, call.peer};
    MachineDecisions::Done done = decision(decisions, by, call.body);
    co_await std::move(done);
  } catch (const DecisionRefused& refused) {
    throw ApiError(status_of(refused.why), refused.what());
  }
  co_return Json::object();
}

}  // namespace

JsonReply list_machines(Api& api, Call&) {
  const ByHardware hardware = by_hardware(api.parts.machines);
  Json list = Json::array();
  for (const auto& entry : api.parts.machines.records())
    list.push_back(machine_json(api, entry.second, hardware));
  co_return Json{{"machines", std::move(list)}};
}

JsonReply approve_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    const MachineDecisions::Ids ids = machine_ids(body);
    const std::string older = text_in(body, "replaces");
    if (older.empty()) {
      return decisions.approve(by, ids, number_in(body, "group", 1, INT64_MAX));
    }
    if (ids.size() != 1)
      throw ApiError(HttpStatus::bad_request, "Only one machine can take the place of another.");
    return decisions.replace(by, ids.front(), older);
  });
}

JsonReply refuse_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.refuse(by, machine_ids(body));
  });
}

JsonReply block_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.block(by, machine_ids(body), text_in(body, "reason"));
  });
}

JsonReply unblock_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.unblock(by, machine_ids(body));
  });
}

JsonReply quarantine_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.quarantine(by, machine_ids(body), text_in(body, "reason"));
  });
}

JsonReply release_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.release(by, machine_ids(body));
  });
}

JsonReply disconnect_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.disconnect(by, machine_ids(body));
  });
}

JsonReply move_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.move(by, machine_ids(body), number_in(body, "group", 1, INT64_MAX));
  });
}

JsonReply remove_machines(Api& api, Call& call) {
  return decide(api, call, [](MachineDecisions& decisions, const MachineDecisions::By& by, const Json& body) {
    return decisions.remove(by, machine_ids(body));
  });
}

JsonReply list_enrolment(Api& api, Call&) {
  Json list = Json::array();
  for (const EnrolmentWindow& window : api.admission.windows().all()) {
    Json json = {
        {"id", window.id},          {"group", window.group},         {"until", window.until},
        {"machines_left", nullptr}, {"opened_by", window.opened_by}, {"opened_at", window.opened_at}};
    if (window.machines_left) json["machines_left"] = *window.machines_left;
    list.push_back(std::move(json));
  }
  co_return Json{{"windows", std::move(list)}};
}

JsonReply open_enrolment(Api& api, Call& call) {
  MachineDecisions decisions(api.parts, api.admission);
  try {
    auto opened = decisions.open_enrolment(
        {call.caller.name, call.peer}, number_in(call.body, "group", 1, INT64_MAX),
        optional_number(call.body, "minutes"), optional_number(call.body, "machines"));
    const std::int64_t id = co_await std::move(opened);
    co_return Json{{"id", id}};
  } catch (const DecisionRefused& refused) {
    throw ApiError(status_of(refused.why), refused.what());
  }
}

JsonReply close_enrolment(Api& api, Call& call) {
  MachineDecisions decisions(api.parts, api.admission);
  try {
    auto closed = decisions.close_enrolment({call.caller.name, call.peer}, id_of(call));
    co_await std::move(closed);
  } catch (const DecisionRefused& refused) {
    throw ApiError(status_of(refused.why), refused.what());
  }
  co_return Json::object();
}

}  // namespace vlk::relay
