// Runs the relay's own functions on the tables of relays and presence, at the times at which the relay does.
#include "presence_relays.h"

#include <algorithm>
#include <functional>

#include "relay/storage/machines/open_sessions.h"

namespace vantelink_bench {
namespace {

using namespace vlk::relay;

double ms(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

// One job in a transaction of its own, with the statements of the relay's database thread.
void in_transaction(Database& database, const std::function<void()>& work) {
  Transaction transaction(database);
  database.execute("SAVEPOINT job");
  work();
  database.execute("RELEASE job");
  transaction.commit();
}

}  // namespace

PresenceRelay::PresenceRelay(Traffic& traffic, Relays& relays, RelayRow row, std::vector<std::uint32_t> own)
    : traffic_(traffic),
      relays_(relays),
      row_(std::move(row)),
      database_(traffic.url),
      own_(std::move(own)),
      random_(static_cast<std::mt19937::result_type>(row_.id)) {
  (void)database_->engine().changed_elsewhere();  // listens from now on
}

PresenceRelay::~PresenceRelay() {
  if (thread_.joinable()) thread_.join();
}

void PresenceRelay::start(const Relays& relays) {
  for (const auto& relay : relays) {
    for (const auto& other : relays) {
      if (other != relay) relay->heard_of_[other->row_.id] = {other.get(), 0};
    }
  }
  for (const auto& relay : relays)
    relay->thread_ = std::thread([&own = *relay] { own.serve(); });
}

void PresenceRelay::wait(const Relays& relays) {
  for (const auto& relay : relays) {
    if (relay->thread_.joinable()) relay->thread_.join();
  }
}

void PresenceRelay::die(std::chrono::milliseconds within) {
  dead_ = true;
  thread_.join();
  database_.reset();
  std::uniform_int_distribution<std::int64_t> delay(0, within.count());
  for (const std::uint32_t machine : own_)
    another().expect({machine, Clock::now() + std::chrono::milliseconds(delay(random_))});
  own_.clear();
}

void PresenceRelay::note_life_now() {
  in_transaction(*database_, [this] { (void)note_life(*database_, row_); });
}

PresenceRelay& PresenceRelay::another() {
  std::uniform_int_distribution<std::size_t> any(0, relays_.size() - 1);
  for (;;) {
    PresenceRelay& relay = *relays_[any(random_)];
    if (!relay.dead_) return relay;
  }
}

void PresenceRelay::expect(Arrival arrival) {
  const std::lock_guard guard(lock_);
  arrivals_.push_back(arrival);
}

// The relays begin at different times, as if they had been started one after the other.
void PresenceRelay::serve() {
  std::uniform_int_distribution<std::int64_t> offset(0, Traffic::kBeat.count());
  const auto begin = Clock::now() + std::chrono::milliseconds(offset(random_));
  Clock::time_point next_flush = begin, next_beat = begin, next_look = begin;
  moved_ = Clock::now();
  while (!traffic_.stopping && !dead_) {
    std::this_thread::sleep_until(std::min({next_flush, next_beat, next_look}));
    const auto now = Clock::now();
    if (now >= next_flush) {
      next_flush = now + Traffic::kFlush;
      move_machines(now);
      flush();
    }
    if (now >= next_beat) {
      next_beat = now + Traffic::kBeat;
      beat();
    }
    if (now >= next_look) {
      next_look = now + Traffic::kLook;
      look();
    }
  }
}

// Each machine that goes connects to another relay at once.
void PresenceRelay::move_machines(Clock::time_point now) {
  const double passed = ms(now - std::exchange(moved_, now)) / 1000;
  const double mean = static_cast<double>(own_.size()) * passed / traffic_.seconds_connected;
  std::size_t count = mean > 0 ? std::poisson_distribution<std::size_t>(mean)(random_) : 0;
  for (count = std::min(count, own_.size()); count > 0; --count) {
    const std::size_t at = std::uniform_int_distribution<std::size_t>(0, own_.size() - 1)(random_);
    std::swap(own_[at], own_.back());
    const std::uint32_t machine = own_.back();
    own_.pop_back();
    news_[traffic_.machines[machine]] = false;
    another().expect({machine, now});
  }
  note_arrivals(now);
}

void PresenceRelay::note_arrivals(Clock::time_point now) {
  const std::lock_guard guard(lock_);
  const auto later = std::partition(arrivals_.begin(), arrivals_.end(),
                                    [now](const Arrival& arrival) { return arrival.due > now; });
  for (auto arrival = later; arrival != arrivals_.end(); ++arrival) {
    own_.push_back(arrival->machine);
    news_[traffic_.machines[arrival->machine]] = true;
  }
  arrivals_.erase(later, arrivals_.end());
}

void PresenceRelay::flush() {
  std::vector<std::string> came;
  std::vector<std::string> gone;
  for (const auto& [machine, online] : std::exchange(news_, {})) {
    if (traffic_.stopping) return;
    if (traffic_.gathered) {
      (online ? came : gone).push_back(machine);
    } else if (online) {
      store({machine}, {});
    } else {
      store({}, {machine});
    }
  }
  if (!came.empty() || !gone.empty()) store(came, gone);
}

void PresenceRelay::store(const std::vector<std::string>& came, const std::vector<std::string>& gone) {
  const std::size_t machines = came.size() + gone.size();
  const auto begin = Clock::now();
  try {
    in_transaction(*database_, [&] { store_presence(*database_, row_.id, came, gone); });
    const auto end = Clock::now();
    const std::lock_guard guard(lock_);
    ++counts_.stores;
    counts_.machines += machines;
    counts_.store_ms.push_back(ms(end - begin));
    commits_.emplace_back((commits_.empty() ? 0 : commits_.back().first) + machines, end);
  } catch (const DatabaseError&) {
    for (const std::string& machine : came)
      news_.emplace(machine, true);
    for (const std::string& machine : gone)
      news_.emplace(machine, false);
    const std::lock_guard guard(lock_);
    ++counts_.failures;
  }
}

void PresenceRelay::beat() {
  bool known = true;
  std::vector<std::string> silent;
  try {
    in_transaction(*database_, [&] {
      known = note_life(*database_, row_);
      if (!known) row_.id = join_relays(*database_, row_.name, row_.address);
      for (const std::string& name : silent = remove_silent_relays(*database_, Traffic::kSilence.count()))
        end_open_sessions(*database_, name);
    });
  } catch (const DatabaseError&) {
    const std::lock_guard guard(lock_);
    ++counts_.failures;
    return;
  }
  if (!known) {
    for (const std::uint32_t machine : own_)
      news_[traffic_.machines[machine]] = true;
  }
  const std::lock_guard guard(lock_);
  ++counts_.beats;
  counts_.removed += silent.size();
  counts_.rejoined += known ? 0 : 1;
}

void PresenceRelay::look() {
  const bool changed = database_->engine().changed_elsewhere();
  const std::vector<std::string> reports = database_->engine().take_reports();
  const auto now = Clock::now();
  const std::lock_guard guard(lock_);
  counts_.changes += changed ? 1 : 0;
  counts_.reports += reports.size();
  for (const std::string& report : reports) {
    counts_.bytes += report.size();
    const auto news = read_presence_news(report);
    const auto sender = news ? heard_of_.find(news->relay) : heard_of_.end();
    if (sender == heard_of_.end()) continue;
    auto& [relay, machines] = sender->second;
    machines += news->came.size() + news->gone.size();
    heard_.push_back({relay, machines, now});
  }
}

void PresenceRelay::take(Counts& counts) {
  const std::lock_guard guard(lock_);
  const Counts own = std::exchange(counts_, {});
  counts.stores += own.stores;
  counts.beats += own.beats;
  counts.failures += own.failures;
  counts.removed += own.removed;
  counts.rejoined += own.rejoined;
  counts.machines += own.machines;
  counts.reports += own.reports;
  counts.bytes += own.bytes;
  counts.changes += own.changes;
  counts.store_ms.insert(counts.store_ms.end(), own.store_ms.begin(), own.store_ms.end());
}

void PresenceRelay::take_delays(Counts& counts) {
  std::vector<Heard> heard;
  {
    const std::lock_guard guard(lock_);
    heard = std::exchange(heard_, {});
  }
  for (const Heard& report : heard) {
    const auto stored = report.sender->stored_at(report.machines);
    // The report can be here before the sender's thread runs again after its commit.
    if (stored) counts.delay_ms.push_back(std::max(0.0, ms(report.at - *stored)));
  }
}

std::optional<Clock::time_point> PresenceRelay::stored_at(std::size_t machines) const {
  const std::lock_guard guard(lock_);
  const auto found =
      std::lower_bound(commits_.begin(), commits_.end(), machines,
                       [](const auto& commit, std::size_t count) { return commit.first < count; });
  if (found == commits_.end()) return std::nullopt;
  return found->second;
}

}  // namespace vantelink_bench
