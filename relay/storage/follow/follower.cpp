// Reads new rows of the trail and gives them to a sink.
#include "relay/storage/follow/follower.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kRowsAtOnce = 200;

std::vector<TrailRow> rows_after(Database& database, std::int64_t id) {
  Statement query(
      database,
      ("SELECT " + std::string(kTrailColumns) + " FROM trail WHERE id > ? ORDER BY id LIMIT ?").c_str());
  query.bind(id).bind(kRowsAtOnce);
  std::vector<TrailRow> rows;
  while (query.step())
    rows.push_back(read_trail_row(query));
  return rows;
}

// The last row that need not be copied to a sink whose last row is `last`. After a restore the trail has
// other rows under the ids of those that the sink got from the replaced trail, so the rows from the restore
// on are copied.
std::int64_t last_copied(Database& database, const TrailEnd& last) {
  Statement same(database, "SELECT 1 FROM trail WHERE id = ? AND hash = ?");
  if (same.bind(last.id).bind(last.hash).step()) return last.id;
  Statement restored(database, "SELECT id FROM trail WHERE code = ? ORDER BY id DESC LIMIT 1");
  if (!restored.bind(rule_of(TrailKind::BackupRestored).code).step()) return last.id;
  return std::min(last.id, restored.number(0) - 1);
}

}  // namespace

TrailFollower::TrailFollower(const std::string& file, std::unique_ptr<TrailSink> sink, Report report)
    : database_(file), sink_(std::move(sink)), report_(std::move(report)) {
  database_.engine().forbid_changes();
  const auto last = sink_->last_row();
  last_id_ = last ? last_copied(database_, *last) : trail_end(database_).id;
  thread_ = std::thread([this] { work(); });
}

TrailFollower::~TrailFollower() {
  {
    const MutexLock guard(lock_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void TrailFollower::reopen() {
  const MutexLock guard(lock_);
  reopen_ = true;
  changed_.notify_all();
}

bool TrailFollower::wait() {
  const auto until = std::chrono::steady_clock::now() + kPause;
  bool reopen = false;
  bool more = true;
  {
    const MutexLock guard(lock_);
    while (!stopping_ && !reopen_ && std::chrono::steady_clock::now() < until)
      changed_.wait_until(lock_, until);
    reopen = std::exchange(reopen_, false);
    more = !stopping_;
  }
  if (reopen) sink_->reopen();
  return more;
}

void TrailFollower::work() {
  for (bool more = true; more;) {
    more = wait();
    try {
      copy();
      failing_ = false;
    } catch (const std::exception& failure) {
      if (!std::exchange(failing_, true)) report_(failure.what());
    }
  }
}

void TrailFollower::copy() {
  for (;;) {
    const std::vector<TrailRow> rows = rows_after(database_, last_id_);
    if (rows.empty()) return;
    for (const TrailRow& row : rows) {
      sink_->write(row);
      last_id_ = row.id;
    }
  }
}

}  // namespace vlk::relay
