// Carries out enrolments and log-ins of agents.
#include "relay/links/agent_login.h"

#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"
#include "relay/storage/trail/chain.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kIdBytes = 16;
constexpr std::size_t kSecretBytes = 32;
// Shorter than the default, because after a refused log-in the agent deletes its identity and connects again
// to enrol.
constexpr std::chrono::milliseconds kRefusalDeadline{1000};

}  // namespace

void AgentLogin::log(const std::string& text) const {
  context_.log.write(peer_->address, peer_->id, text);
}

// Closes the connection of an agent that sends messages in the wrong order.
void AgentLogin::refuse_order(const std::string& reason) {
  channel_.close(CloseCode::PolicyViolation, reason);
}

// The connection is not read until this function returns.
asio::awaitable<bool> AgentLogin::handle(Msg type, const Bytes& message) {
  if (peer_->refused || channel_.closing()) co_return false;
  const nlohmann::json fields = agent_json(message);
  if (!greeted_) {
    greeted_ = type == Msg::Hello && text_field(fields, "role") == "agent";
    if (!greeted_) refuse_order("a hello was expected");
    co_return false;
  }
  if (type != Msg::Enroll && type != Msg::Login) {
    refuse_order("an enrolment or log-in was expected");
    co_return false;
  }
  try {
    if (type == Msg::Enroll) {
      co_await enroll(fields);
    } else {
      co_await log_in(fields);
    }
  } catch (const DatabaseError& failure) {
    // Not AUTH_FAILED, which would make the agent delete its identity.
    log(failure.what());
    hold_back("RELAY_FAILED", "The relay cannot work at the moment.");
  }
  co_return !peer_->id.empty();
}

void AgentLogin::send_error(const char* code, const char* message) {
  channel_.send_binary(json_envelope(
      Msg::Error, 0, std::string("{\"code\":\"") + code + "\",\"message\":\"" + message + "\"}"));
}

// Sends an error and keeps the connection open for a while, because the agent connects again half a second
// after each close.
void AgentLogin::hold_back(const char* code, const char* message) {
  send_error(code, message);
  peer_->refused = true;
  peer_->since = Clock::now();
}

void AgentLogin::refuse_enrolment(const char* why, const char* message) {
  ++parts_.counters.refused_enrolments;
  log(std::string("enrolment refused: ") + why);
  hold_back("TOO_MANY", message);
}

MachineRecord AgentLogin::new_record(const nlohmann::json& fields, const std::string& secret,
                                     MachineState state) const {
  MachineRecord record{
      random_token(kIdBytes),   text_field(fields, "name"),  text_field(fields, "machine_name"),
      text_field(fields, "os"), text_field(fields, "hw_id"), wall_seconds()};
  record.secret_hash = hash_secret(secret);
  record.enrolled_at = record.state_since = record.last_seen;
  record.enrolled_from = peer_->address;
  record.state = state;
  return record;
}

asio::awaitable<void> AgentLogin::enroll(const nlohmann::json& fields) {
  if (context_.enrolments.exhausted(source_, Clock::now())) {
    co_return refuse_enrolment("too many from this address",
                               "Too many new machines from this address. Try again later.");
  }
  context_.enrolments.add(source_, Clock::now());
  const auto window = context_.admission.windows().admit(wall_seconds());
  if (!window && !context_.admission.make_room(peer_->address)) {
    co_return refuse_enrolment("too many machines wait for approval",
                               "Too many new machines wait for approval. Try again later.");
  }
  const MachineState state = window ? MachineState::Approved : MachineState::Waiting;
  if (!take_place(state)) {
    if (window) context_.admission.windows().give_back(window->id);
    co_return;
  }
  const std::string secret = random_token(kSecretBytes);
  MachineRecord record = new_record(fields, secret, state);
  if (window) {
    record.group = window->group;
    record.state_by = window->opened_by;
  }
  const std::vector rows = {
      trail_entry<TrailKind::MachineEnrolled>(subject_of(record.id), record.machine, record.os, record.hw_id,
                                              state_name(record.state)),
      trail_entry<TrailKind::MachineConnected>(subject_of(record.id), record.name)};
  const auto work = [record, rows, window](Store& store) {
    add_machine(store.database(), record);
    if (window && !use_enrolment_window(store.database(), window->id))
      throw DatabaseError("the enrolment window was closed by another relay");
    append_trail(store.database(), rows);
  };
  try {
    co_await parts_.database.run(work);
  } catch (const DatabaseError&) {
    if (window) context_.admission.windows().give_back(window->id);
    throw;
  }
  ++parts_.counters.enrolments;
  peer_->recorded = record.id;
  parts_.machines.add(record);
  if (!window) log("waits for approval");
  if (channel_.closing()) co_return;
  channel_.send_binary(json_envelope(
      Msg::EnrollResult, 0, R"({"agent_id":")" + record.id + R"(","agent_secret":")" + secret + R"("})"));
  go_online(record.id);
}

asio::awaitable<void> AgentLogin::log_in(const nlohmann::json& fields) {
  const std::string id = text_field(fields, "agent_id");
  if (parts_.cluster.joined() && !parts_.machines.find(id)) {
    if (context_.refusals.exhausted(source_, Clock::now()))
      co_return hold_back("TOO_MANY", "Too many log-ins from this address were refused. Try again later.");
    co_await find_new_machine(id);
  }
  const MachineRecord* known = parts_.machines.find(id);
  // The secret is compared for unknown agents too, so that the time does not show which ids exist.
  const bool same =
      same_hash(known ? known->secret_hash : Bytes(32), hash_secret(text_field(fields, "secret")));
  if (!known || !same) co_return refuse_log_in(id, known ? "wrong secret" : "unknown");
  if (!may_connect(known->state)) co_return refuse_state(id, known->state);
  if (context_.log_ins.exhausted(id, Clock::now())) {
    log("log-in refused: too many of this machine in a short time");
    co_return hold_back("TOO_MANY", "This machine connects too often. Try again later.");
  }
  context_.log_ins.add(id, Clock::now());
  if (!take_place(known->state)) co_return;
  const std::string name = accepted_name(*known, text_field(fields, "name"));
  std::vector<TrailEntry> rows;
  if (name != known->name)
    rows.push_back(trail_entry<TrailKind::MachineRenamed>(subject_of(id), name, known->name));
  rows.push_back(trail_entry<TrailKind::MachineConnected>(subject_of(id), name));
  const auto work = [id, name, rows](Store& store) {
    if (rows.size() > 1) rename_machine(store.database(), id, name);
    append_trail(store.database(), rows);
  };
  co_await parts_.database.run(work);
  peer_->recorded = id;
  // The machine can have been removed or blocked in the meantime.
  known = parts_.machines.find(id);
  if (!known) co_return refuse_log_in(id, "unknown");
  if (!may_connect(known->state)) co_return refuse_state(id, known->state);
  if (channel_.closing()) co_return;
  parts_.machines.set_name(id, name);
  go_online(id);
}

// Another relay may have enrolled the machine a moment ago. A machine that is refused as unknown would forget
// its identity.
asio::awaitable<void> AgentLogin::find_new_machine(const std::string& id) {
  const auto work = [id](Store& store) { return find_machine(store.database(), id); };
  const std::optional<MachineRecord> found = co_await parts_.database.run(work);
  if (found && !parts_.machines.find(id)) parts_.machines.add(*found);
}

// The name that a machine has from this log-in on. Each new name is stored, so it counts like one that is
// sent later.
std::string AgentLogin::accepted_name(const MachineRecord& known, std::string name) {
  if (name == known.name) return name;
  if (context_.renames.exhausted(known.id, Clock::now())) return known.name;
  context_.renames.add(known.id, Clock::now());
  return name;
}

TrailSubject AgentLogin::subject_of(const std::string& id) const {
  return {.machine = id, .address = peer_->address};
}

// The number of rows is limited, because anybody can cause them and each takes space on the disk.
void AgentLogin::record_refusal(const std::string& id, std::string_view why) {
  log("log-in refused for agent \"" + id + "\": " + std::string(why));
  if (context_.refusals.exhausted(source_, Clock::now())) return;
  context_.refusals.add(source_, Clock::now());
  parts_.audit.write(trail_entry<TrailKind::MachineLoginRefused>(subject_of(id), why));
}

// Not AUTH_FAILED, after which the agent would enrol as a new machine.
void AgentLogin::refuse_state(const std::string& id, MachineState state) {
  record_refusal(id, state_name(state));
  if (state == MachineState::UsedTwice)
    return hold_back("USED_TWICE", "Another computer uses the identity of this one. Ask your support.");
  hold_back("BLOCKED", "This machine is blocked. Ask your support.");
}

void AgentLogin::refuse_log_in(const std::string& id, const char* why) {
  record_refusal(id, why);
  send_error("AUTH_FAILED", "This machine is not known to the relay.");
  peer_->refused = true;
  channel_.close(CloseCode::PolicyViolation, "log-in refused", kRefusalDeadline);
}

bool AgentLogin::take_place(MachineState state) {
  if (place_.rise(state == MachineState::Waiting ? Standing::Waiting : Standing::Known)) return true;
  refuse_order("too many machines are connected");
  return false;
}

void AgentLogin::update_standing() {
  if (const MachineRecord* known = parts_.machines.find(peer_->id)) (void)take_place(known->state);
}

void AgentLogin::go_online(const std::string& id) {
  channel_.send_binary(json_envelope(Msg::LoginResult, 0, "{}"));
  if (const auto older = parts_.machines.log_in(peer_, id)) {
    parts_.sessions.end_all_of(*older, "replaced");
    older->channel->cut("replaced by a newer log-in");
    if (context_.admission.replaced(*peer_, *older, Clock::now()))
      return channel_.cut("two computers use this identity");
  }
  for (const std::uint32_t upload : parts_.transfers.owed(id, Clock::now()))
    channel_.send_binary(upload_end(0, upload));
}

}  // namespace vlk::relay
