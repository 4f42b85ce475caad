// What the database's thread does while the database's server is lost: it connects again, and keeps the jobs.
#include <algorithm>

#include <boost/asio/post.hpp>

#include "relay/storage/thread/database_thread.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

// The pauses between attempts to connect. The first is shorter than the restart of a server.
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{1000};

}  // namespace

// Returns true when the server is connected, and false at a stop. Each job that the loss cut off in its
// commit is settled if it is stored.
bool DatabaseThread::connect_again(Entries& batch) {
  {
    // At a stop there is one attempt, not one for each transaction that is left.
    const MutexLock guard(lock_);
    if (stopping_ && lost_since_) return false;
  }
  note_loss();
  std::chrono::milliseconds pause = kFirstPause;
  for (;;) {
    if (try_to_connect()) {
      note_return();
      return true;
    }
    give_up_waiting(batch);
    const MutexLock guard(lock_);
    if (stopping_) return false;
    const auto until = std::chrono::steady_clock::now() + pause;
    while (!stopping_ && std::chrono::steady_clock::now() < until)
      changed_.wait_until(lock_, until);
    pause = std::min(2 * pause, kLongestPause);
  }
}

bool DatabaseThread::try_to_connect() {
  Engine& engine = store_->database().engine();
  try {
    engine.reconnect();
    const bool stored = !committing_.empty() && engine.last_commit_stored();
    for (Entry* const job : committing_)
      job->settled = stored || job->settled;
    committing_.clear();
    return true;
  } catch (const DatabaseError&) {
    return false;
  }
}

// Fails the jobs for which somebody has waited long enough.
void DatabaseThread::give_up_waiting(Entries& batch) {
  const auto latest = std::chrono::steady_clock::now() - bounds_.patience;
  const auto error = std::make_exception_ptr(DatabaseLost(kNotReached));
  const auto is_over = [&](const Entry& entry) {
    return entry.waiter != Entry::Waiter::Nobody && !entry.settled && entry.given <= latest;
  };
  std::vector<Entry*> over;
  for (Entry& entry : batch) {
    if (is_over(entry)) over.push_back(&entry);
  }
  Entries taken;
  {
    const MutexLock guard(lock_);
    const auto first = std::stable_partition(queue_.begin(), queue_.end(), std::not_fn(is_over));
    taken.assign(std::make_move_iterator(first), std::make_move_iterator(queue_.end()));
    queue_.erase(first, queue_.end());
  }
  for (Entry& entry : taken)
    over.push_back(&entry);
  for (Entry* const job : over) {
    job->settled = true;
    job->error = error;
  }
  complete(over);
  finish(taken);
}

std::string DatabaseThread::Reach::sentence() const {
  const std::string jobs = std::to_string(waiting) + (waiting == 1 ? " change" : " changes");
  if (lost)
    return "the database is lost: " + reason + "; sessions go on, and " + jobs +
           " and all later ones wait until it is back";
  return "the database is back after " + std::to_string(lasted.count()) + " ms; " + jobs + " are stored now";
}

bool DatabaseThread::out_of_patience() const {
  return lost_since_ && std::chrono::steady_clock::now() >= *lost_since_ + bounds_.patience;
}

bool DatabaseThread::lost() {
  const MutexLock guard(lock_);
  return lost_since_.has_value();
}

void DatabaseThread::on_reach(std::function<void(const Reach&)> reached) {
  const MutexLock guard(lock_);
  reached_ = std::move(reached);
}

void DatabaseThread::note_loss() {
  const MutexLock guard(lock_);
  lost_since_ = std::chrono::steady_clock::now();
  changed_.notify_all();
  report({true, loss_, held_jobs_, {}});
}

void DatabaseThread::note_return() {
  const MutexLock guard(lock_);
  const auto lasted = std::chrono::steady_clock::now() - lost_since_.value();
  lost_since_.reset();
  report({false, {}, held_jobs_, std::chrono::duration_cast<std::chrono::milliseconds>(lasted)});
}

void DatabaseThread::report(const Reach& reach) {
  if (reached_) asio::post(loop_, [reached = reached_, reach] { reached(reach); });
}

}  // namespace vlk::relay
