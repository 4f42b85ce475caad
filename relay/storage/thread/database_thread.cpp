// The queue of the database's jobs, and the transactions in which they run.
#include "relay/storage/thread/database_thread.h"

#include <algorithm>
#include <span>

#include <boost/asio/post.hpp>

namespace asio = boost::asio;

namespace vlk::relay {

DatabaseThread::DatabaseThread(std::unique_ptr<Store> store, asio::any_io_executor loop, const Bounds& bounds)
    : store_(std::move(store)),
      loop_(std::move(loop)),
      bounds_(bounds),
      next_look_(std::chrono::steady_clock::now() + bounds.look) {
  (void)store_->database().engine().changed_elsewhere();  // changes are counted from now on
  thread_ = std::thread([this] { serve(); });
}

DatabaseThread::~DatabaseThread() {
  {
    const MutexLock guard(lock_);
    stopping_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

bool DatabaseThread::drain() {
  const MutexLock guard(lock_);
  ++hurrying_;
  changed_.notify_all();
  while (held_jobs_ > 0 && !out_of_patience()) {
    if (lost_since_) {
      changed_.wait_until(lock_, *lost_since_ + bounds_.patience);
    } else {
      changed_.wait(lock_);
    }
  }
  --hurrying_;
  return held_jobs_ == 0;
}

void DatabaseThread::on_reports(std::function<void(const std::vector<std::string>&)> heard) {
  const MutexLock guard(lock_);
  heard_ = std::move(heard);
}

void DatabaseThread::on_outside_change(std::function<void()> changed) {
  const MutexLock guard(lock_);
  outside_change_ = std::move(changed);
}

DatabaseThread::Load DatabaseThread::load() {
  const MutexLock guard(lock_);
  return {held_jobs_, held_bytes_, times_};
}

void DatabaseThread::serve() {
  for (;;) {
    Entries batch = next_batch();
    look_for_changes();
    if (batch.empty()) {
      const MutexLock guard(lock_);
      if (stopping_ && queue_.empty()) return;
      continue;
    }
    run_batch(batch);
    finish(batch);
  }
}

// Waits for a job, and then for the further jobs of its transaction. Returns no job at a stop or when it is
// time to look for changes.
DatabaseThread::Entries DatabaseThread::next_batch() {
  const MutexLock guard(lock_);
  wait_for_jobs();
  if (queue_.empty()) return {};
  const std::size_t count = std::min(queue_.size(), bounds_.batch);
  const auto most = queue_.begin() + static_cast<std::ptrdiff_t>(count);
  const Access access = queue_.front().access;
  const auto end =
      std::find_if(queue_.begin(), most, [access](const Entry& entry) { return entry.access != access; });
  Entries batch(std::make_move_iterator(queue_.begin()), std::make_move_iterator(end));
  queue_.erase(queue_.begin(), end);
  return batch;
}

void DatabaseThread::wait_for_jobs() {
  while (queue_.empty() && !stopping_ && std::chrono::steady_clock::now() < next_look_)
    changed_.wait_until(lock_, next_look_);
  if (queue_.empty()) return;
  const auto end = queue_.front().given + bounds_.gather;
  while (queue_.size() < bounds_.batch && hurrying_ == 0 && !stopping_ &&
         std::chrono::steady_clock::now() < end)
    changed_.wait_until(lock_, end);
}

void DatabaseThread::finish(const Entries& batch) {
  const auto now = std::chrono::steady_clock::now();
  const MutexLock guard(lock_);
  held_jobs_ -= batch.size();
  for (const Entry& entry : batch) {
    held_bytes_ -= entry.bytes + kJobBytes;
    times_.add(now - entry.given);
  }
  changed_.notify_all();
}

void DatabaseThread::run_batch(Entries& batch) {
  run_jobs(batch);
  while (store_->database().engine().lost() && connect_again(batch))
    run_jobs(batch);
  std::vector<Entry*> all;
  for (Entry& entry : batch) {
    if (!entry.settled) entry.error = std::make_exception_ptr(DatabaseLost(kNotReached));
    entry.work = nullptr;
    all.push_back(&entry);
  }
  complete(all);
}

// Calls what waits for the jobs, each once.
void DatabaseThread::complete(std::span<Entry* const> jobs) {
  auto completions = std::make_shared<std::vector<Completion>>();
  for (Entry* const job : jobs) {
    if (!job->done) continue;
    const Done done = std::exchange(job->done, nullptr);
    if (job->waiter == Entry::Waiter::Thread) {
      done(job->error);
    } else {
      completions->push_back({done, job->error});
    }
  }
  if (completions->empty()) return;
  asio::post(loop_, [completions] {
    for (Completion& completion : *completions)
      std::exchange(completion.done, nullptr)(std::move(completion.error));
  });
}

// Runs the jobs that are not settled. If their transaction fails as a whole, for instance because the disk is
// full, each of them gets a transaction of its own, so that only the jobs that cannot be stored fail.
void DatabaseThread::run_jobs(Entries& batch) {
  std::vector<Entry*> jobs;
  for (Entry& entry : batch) {
    if (!entry.settled) jobs.push_back(&entry);
  }
  if (jobs.empty() || run_together(jobs) != Outcome::Undone) return;
  for (Entry* job : jobs) {
    // The error of a transaction of one job is the job's.
    const Outcome outcome = jobs.size() == 1 ? Outcome::Undone : run_together({&job, 1});
    if (outcome == Outcome::Lost) return;
    job->settled = true;
  }
}

// Runs the jobs, all of which write or all of which read, in one transaction. While another process holds the
// database's lock, each attempt waits long, so there is only one.
DatabaseThread::Outcome DatabaseThread::run_together(std::span<Entry* const> jobs) {
  Database& database = store_->database();
  const auto settle = [&] {
    for (Entry* const job : jobs)
      job->settled = true;
    return Outcome::Settled;
  };
  bool begun = false;
  committing_.clear();
  try {
    std::optional<Transaction> transaction;
    std::optional<Snapshot> snapshot;
    if (jobs.front()->access == Access::Writes) {
      transaction.emplace(database);
    } else {
      snapshot.emplace(database);
    }
    begun = true;
    for (Entry* const job : jobs) {
      job->error = run_job(*job);
      if (database.engine().in_transaction()) continue;
      if (database.engine().lost()) return Outcome::Lost;
      const std::exception_ptr error = job->error;
      for (Entry* const other : jobs)
        other->error = error;
      return Outcome::Undone;
    }
    if (!transaction) {
      snapshot.reset();
      if (database.engine().lost()) loss_ = "it has closed the connection";
      return settle();
    }
    committing_.assign(jobs.begin(), jobs.end());
    transaction->commit();
    committing_.clear();
    ++commits_;
    return settle();
  } catch (const DatabaseLost& failure) {
    loss_ = failure.what();
    return Outcome::Lost;
  } catch (const DatabaseError&) {
    committing_.clear();
    for (Entry* const job : jobs)
      job->error = std::current_exception();
    return begun ? Outcome::Undone : settle();
  }
}

// Returns the error of the job, or null. Undoes the changes of a job that fails.
std::exception_ptr DatabaseThread::run_job(Entry& entry) {
  Database& database = store_->database();
  std::exception_ptr error;
  try {
    database.execute("SAVEPOINT job");
    entry.work(*store_);
  } catch (const DatabaseLost& failure) {
    loss_ = failure.what();
    error = std::current_exception();
  } catch (...) {
    error = std::current_exception();
  }
  if (!database.engine().in_transaction()) return error;
  try {
    if (error) database.execute("ROLLBACK TO job");
    database.execute("RELEASE job");
  } catch (const DatabaseError&) {
    if (!error) error = std::current_exception();
  }
  return error;
}

void DatabaseThread::look_for_changes() {
  if (std::chrono::steady_clock::now() < next_look_) return;
  next_look_ = std::chrono::steady_clock::now() + bounds_.look;
  Engine& engine = store_->database().engine();
  try {
    const bool is_changed = engine.changed_elsewhere();
    const auto reports = engine.take_reports();
    const MutexLock guard(lock_);
    if (is_changed && outside_change_) asio::post(loop_, outside_change_);
    if (!reports.empty() && heard_) asio::post(loop_, [heard = heard_, reports] { heard(reports); });
  } catch (const DatabaseLost& failure) {
    loss_ = failure.what();
    Entries none;
    (void)connect_again(none);
  } catch (const DatabaseError&) {
    // The next look compares with the old state again.
  }
}

}  // namespace vlk::relay
