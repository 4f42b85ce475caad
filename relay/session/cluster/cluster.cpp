// Keeps the tables of relays and presence, and applies what other relays report.
#include "relay/session/cluster/cluster.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "relay/storage/machines/open_sessions.h"
#include "relay/storage/people/access_store.h"

namespace vlk::relay {
namespace {

// The fingerprint of the key with which all relays of the database sign the trail.
constexpr char kTrailKeySetting[] = "trail-key";

}  // namespace

void Cluster::join(const Settings& settings, const std::string& trail_key) {
  const auto first_key = [&](Store& store) {
    return keep_first(store.database(), {kTrailKeySetting, trail_key});
  };
  if (database_.run_and_wait(first_key) != trail_key) {
    throw std::runtime_error(
        "the audit trail of this database is signed with another key; copy trail-key.pem and "
        "trail-key.pub from the data folder of another relay to the one of this relay, and start it again");
  }
  settings_ = settings;
  own_.name = settings.name;
  own_.address = settings.address;
  own_.id = database_.run_and_wait(
      [&](Store& store) { return join_relays(store.database(), settings.name, settings.address); });
  machines_.on_presence([this](const std::string& machine, bool online) { note(machine, online); });
  log_.write("", "",
             "this relay is \"" + settings.name + "\" among those of the database, at " + settings.address);
}

void Cluster::leave() {
  if (!joined()) return;
  try {
    database_.run_and_wait([id = own_.id](Store& store) { leave_relays(store.database(), id); });
  } catch (const DatabaseError& failure) {
    log_.write("", "", std::string("the other relays do not learn that this one ends: ") + failure.what());
  }
}

void Cluster::note(const std::string& machine, bool online) {
  thread_.check();
  news_[machine] = online;
}

void Cluster::tick(Clock::time_point now) {
  if (!joined()) return;
  if (now >= next_flush_) {
    next_flush_ = now + settings_.flush;
    flush();
  }
  if (now >= next_beat_ && !beating_) {
    next_beat_ = now + settings_.beat;
    beat();
  }
  if (own_.draining && now >= next_move_) {
    next_move_ = now + std::chrono::seconds(1);
    move_machines();
  }
}

void Cluster::flush() {
  if (news_.empty()) return;
  std::vector<std::string> came;
  std::vector<std::string> gone;
  std::size_t bytes = 0;
  for (const auto& [machine, online] : std::exchange(news_, {})) {
    (online ? came : gone).push_back(machine);
    bytes += sizeof(std::string) + machine.size();
  }
  const auto work = [id = own_.id, came, gone](Store& store) {
    store_presence(store.database(), id, came, gone);
  };
  // What could not be stored is noted again, as it is by then.
  const auto done = [this, came, gone](const std::string& failure) {
    if (failure.empty()) return;
    for (const auto* machines : {&came, &gone}) {
      for (const std::string& machine : *machines)
        news_[machine] = machines_.connection(machine) != nullptr;
    }
  };
  database_.post(work, done, bytes);
}

// A relay that the others have removed, because its notes came too late or the server lost the table in a
// crash, enters itself again, with all its machines.
void Cluster::beat() {
  beating_ = true;
  const auto id = std::make_shared<std::int64_t>(own_.id);
  const auto silent = std::make_shared<std::vector<std::string>>();
  const auto work = [own = own_, id, silent, silence = settings_.silence](Store& store) {
    if (!note_life(store.database(), own)) *id = join_relays(store.database(), own.name, own.address);
    // The sessions of a dead relay have ended, and it cannot write so itself.
    *silent = remove_silent_relays(store.database(), silence.count());
    for (const std::string& name : *silent)
      end_open_sessions(store.database(), name);
  };
  database_.post(work, [this, id, silent](const std::string& failure) {
    beating_ = false;
    for (const std::string& name : failure.empty() ? *silent : std::vector<std::string>())
      log_.write("", "", "the relay \"" + name + "\" is silent; the others go on without it");
    if (failure.empty() && !silent->empty()) reload();
    if (!failure.empty() || *id == own_.id) return;
    own_.id = *id;
    log_.write("", "", "the other relays had taken this one for dead; it has entered itself again");
    for (const std::string& machine : machines_.online())
      news_[machine] = true;
    reload();
  });
}

void Cluster::reload() {
  if (!joined()) return;
  struct Loaded {
    std::vector<RelayRow> relays;
    std::vector<PresenceRow> presence;
  };
  const auto loaded = std::make_shared<Loaded>();
  const auto work = [loaded](Store& store) {
    *loaded = {load_relays(store.database()), load_presence(store.database())};
  };
  database_.post_reading(work, [this, loaded](const std::string& failure) {
    if (failure.empty()) return apply(std::move(loaded->relays), loaded->presence);
    log_.write("", "", "the list of relays is not read: " + failure);
  });
}

void Cluster::apply(std::vector<RelayRow> relays, const std::vector<PresenceRow>& presence) {
  others_.clear();
  for (RelayRow& relay : relays) {
    if (relay.id != own_.id) others_[relay.id] = std::move(relay);
  }
  std::map<std::string, std::int64_t> elsewhere;
  for (const PresenceRow& row : presence) {
    if (others_.contains(row.relay)) elsewhere[row.machine] = row.relay;
  }
  machines_.replace_elsewhere(std::move(elsewhere));
}

void Cluster::hear(const std::vector<std::string>& reports) {
  thread_.check();
  for (const std::string& report : reports) {
    const auto news = read_presence_news(report);
    if (!news || news->relay == own_.id) continue;
    for (const std::string& machine : news->cut)
      disconnect_(machine);
    for (const std::string& machine : news->gone)
      machines_.left_relay(machine, news->relay);
    for (const std::string& machine : news->came) {
      machines_.set_elsewhere(machine, news->relay);
      // The newer connection is used, as for two connections to one relay.
      if (const auto older = machines_.connection(machine))
        older->channel->cut("the machine has connected to another relay");
    }
  }
}

const RelayRow* Cluster::relay_of(const std::string& machine) const {
  const auto relay = others_.find(machines_.elsewhere(machine));
  return relay == others_.end() ? nullptr : &relay->second;
}

void Cluster::drain() {
  thread_.check();
  if (own_.draining) return;
  own_.draining = true;
  next_beat_ = {};
  log_.write("", "",
             "draining: " + std::to_string(machines_.count_online()) + " machines are moved away, " +
                 std::to_string(settings_.moved_at_once) + " each second");
}

void Cluster::move_machines() {
  const std::size_t moved = machines_.cut_some(settings_.moved_at_once, "the relay is being drained");
  if (moved > 0 && machines_.count_online() <= moved)
    log_.write("", "", "drained: the last machines are moved away");
}

}  // namespace vlk::relay
