// Connects the parts with each other and with the stored state.
#include "relay/session/parts.h"

#include <map>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <nlohmann/json.hpp>

#include "relay/base/threads/thread_checker.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/trail/chain.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

// What the loop keeps in memory.
struct Stored {
  People::Contents people;
  std::vector<LoginRow> logins;
  std::vector<MachineRecord> machines;
};

Stored load(Store& store) {
  Database& database = store.database();
  return {People::load(database), load_logins(database), load_machines(database)};
}

// Another relay may have blocked a machine that is connected to this one, or put it into quarantine.
void apply_states(Parts& parts) {
  for (const std::string& id : parts.machines.online()) {
    const MachineRecord* machine = parts.machines.find(id);
    const auto peer = parts.machines.connection(id);
    if (!machine || !peer || machine->state == MachineState::Approved) continue;
    if (may_connect(machine->state)) {
      parts.sessions.end_all_of(*peer, "quarantined", true);
    } else {
      parts.sessions.end_all_of(*peer, "blocked");
      peer->channel->cut("an administrator decided: " + std::string(state_name(machine->state)));
    }
  }
}

void apply(Parts& parts, Stored stored) {
  parts.people.replace(std::move(stored.people));
  parts.logins.replace(std::move(stored.logins));
  parts.machines.update(std::move(stored.machines));
  apply_states(parts);
  parts.sessions.refresh_rights();  // machines can have moved to other groups
}

// What a view shows of a group's machines.
struct GroupView {
  Rights rights = kNoRights;
  std::string fields;  // members of a machine's JSON object
};

std::string fields_of(const Group& group, Rights rights) {
  const nlohmann::json fields = {{"group", group.id},
                                 {"rights", right_names(rights)},
                                 {"step_up", group.step_up},
                                 {"ask_reason", group.ask_reason}};
  const std::string object = fields.dump();
  return object.substr(1, object.size() - 2);
}

asio::awaitable<void> load_again(Parts& parts) {
  try {
    apply(parts, co_await parts.database.run_reading(load));
  } catch (const std::exception& failure) {
    parts.log.write("", "", std::string("a change of the database is not applied: ") + failure.what());
  }
}

}  // namespace

Parts::Parts(DatabaseThread& database_thread, Spools& spools, const Log& log_lines, const Limits& limits)
    : database(database_thread),
      log(log_lines),
      downloads(spools),
      audit(database, log),
      machines(database, log),
      browsers(machines, log),
      sessions(people, logins, machines, browsers, transfers, downloads, uploads, pressed, audit, clips, log,
               limits, random_number()),
      router(sessions, transfers, downloads, pressed, audit, clips, limits),
      measures(sessions, log, limits),
      quality(sessions, measures, log),
      watchdog(machines, browsers, sessions, logins, measures, quality, database, log, limits),
      recent_pictures(limits.recent_pictures) {
  // The constructor runs on the thread that starts the relay, everything after it on the loop's.
  const ThreadChecker::Setup setup;
  logins.on_warning(
      [this](const Bytes& login, std::int64_t seconds) { return browsers.warn_login(login, seconds); });
  logins.on_over([this](const LoginRow& row, bool idle) { remove_login_that_is_over(row, idle); });
  logins.on_end([this](const Bytes& login, const std::string& reason) {
    sessions.end_all_of(login, "login-ended");
    browsers.end_login(login, reason);
  });
  downloads.listen({[this](std::uint32_t session, std::uint32_t download, const char* code) {
                      sessions.lose_download(session, download, code);
                    },
                    [this](std::uint32_t session) { sessions.resume_reading(session); }});
  people.on_change([this] {
    sessions.refresh_rights();
    for (const auto& peer : browsers.all()) {
      if (!peer->view) continue;
      auto view = view_of(peer->person);
      if (peer->view->key != view->key) browsers.set_view(*peer, std::move(view));
    }
  });
  cluster.on_disconnection([this](const std::string& machine) {
    const auto peer = machines.connection(machine);
    if (!peer) return;
    sessions.end_all_of(*peer, "disconnected");
    peer->channel->cut("an administrator decided: disconnected");
  });
  apply(*this, database.run_and_wait(load, DatabaseThread::Access::Reads));
  (void)machines.take_changed();  // the first browser gets the whole list
  database.on_outside_change([this] { reload(); });
}

std::shared_ptr<const MachineView> Parts::view_of(PersonId person) const {
  std::map<GroupId, GroupView> groups;
  std::string key;
  for (const Group& group : people.all().groups) {
    const Rights rights = people.rights_of(person, group.id);
    if (!(rights & kSee)) continue;
    const GroupView& view = groups[group.id] = {rights, fields_of(group, rights)};
    key += view.fields + '\n';
  }
  const auto shows = [groups = std::move(groups)](const MachineRecord& machine, std::string& fields) {
    const auto group = groups.find(machine.group);
    if (group == groups.end() || !is_listed(machine.state)) return false;
    fields = group->second.fields;
    return true;
  };
  const Person* who = people.person(person);
  const bool administers = who && !who->disabled && who->role == Role::Administrator;
  key += administers ? "waiting" : "";
  return std::make_shared<const MachineView>(
      MachineView{key.empty() ? "nothing" : std::move(key), shows, administers});
}

// The stored log-in goes with its row, so that the row is written once.
void Parts::remove_login_that_is_over(const LoginRow& row, bool idle) {
  const Person* person = people.person(row.person);
  const auto entry = trail_entry<TrailKind::LoginEnded>({.actor = kTrailRelay, .address = row.address},
                                                        idle ? "idle" : "expired",
                                                        person ? std::optional(person->name) : std::nullopt);
  const auto remove = [hash = row.token_hash, entry](Store& store) {
    if (remove_login(store.database(), hash)) append_trail(store.database(), std::span(&entry, 1));
  };
  database.post(remove, [this](const std::string& failure) {
    if (!failure.empty()) log.write("", "", "the end of a log-in is not stored: " + failure);
  });
}

void Parts::reload() {
  cluster.reload();
  asio::co_spawn(database.loop(), load_again(*this), asio::detached);
}

}  // namespace vlk::relay
