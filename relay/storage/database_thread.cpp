// The queue of the database's jobs, and the transactions in which they run.
#include "relay/storage/database_thread.h"

#include <algorithm>
#include <future>
#include <span>

#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

// What a queued job costs besides what its sender states.
constexpr std::size_t kJobBytes = 256;

std::int64_t data_version(Database& database) {
  Statement query(database, "PRAGMA data_version");
  query.step();
  return query.number(0);
}

std::string message_of(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace

DatabaseThread::DatabaseThread(std::unique_ptr<Store> store, asio::any_io_executor loop, const Bounds& bounds)
    : store_(std::move(store)),
      loop_(std::move(loop)),
      bounds_(bounds),
      version_(data_version(store_->database())),
      next_look_(std::chrono::steady_clock::now() + bounds.look),
      thread_([this] { serve(); }) {}

DatabaseThread::~DatabaseThread() {
  {
    const MutexLock guard(lock_);
    stopping_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

asio::awaitable<void> DatabaseThread::submit(Job work, std::size_t bytes) {
  if (!has_room(bytes)) throw DatabaseBusy();
  const auto start = [this, &work, bytes](auto handler) {
    const auto resume = std::make_shared<decltype(handler)>(std::move(handler));
    enqueue({std::move(work), [resume](std::exception_ptr error) { std::move (*resume)(std::move(error)); },
             bytes, false});
  };
  co_await asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr)>(start,
                                                                                         asio::use_awaitable);
}

void DatabaseThread::submit_and_wait(Job work) {
  std::promise<void> promise;
  std::future<void> result = promise.get_future();
  const auto done = [&promise](const std::exception_ptr& error) {
    if (error) return promise.set_exception(error);
    promise.set_value();
  };
  {
    const MutexLock guard(lock_);
    ++hurrying_;
  }
  enqueue({std::move(work), done, 0, true});
  result.wait();
  {
    const MutexLock guard(lock_);
    --hurrying_;
  }
  result.get();
}

void DatabaseThread::post(Job work, OnDone done, std::size_t bytes) {
  if (!has_room(bytes)) {
    return asio::post(loop_, [done = std::move(done)] { done(DatabaseBusy().what()); });
  }
  const auto report = [done = std::move(done)](const std::exception_ptr& error) { done(message_of(error)); };
  enqueue({std::move(work), report, bytes, false});
}

void DatabaseThread::drain() {
  const MutexLock guard(lock_);
  ++hurrying_;
  changed_.notify_all();
  while (held_jobs_ > 0)
    changed_.wait(lock_);
  --hurrying_;
}

void DatabaseThread::on_outside_change(std::function<void()> changed) {
  const MutexLock guard(lock_);
  outside_change_ = std::move(changed);
}

// Only the loop gives bounded jobs, so the room that it finds does not shrink before it uses it.
bool DatabaseThread::has_room(std::size_t bytes) {
  const MutexLock guard(lock_);
  return held_jobs_ < bounds_.jobs && held_bytes_ + bytes + kJobBytes <= bounds_.bytes;
}

DatabaseThread::Load DatabaseThread::load() {
  const MutexLock guard(lock_);
  return {held_jobs_, held_bytes_, times_};
}

void DatabaseThread::enqueue(Entry entry) {
  const MutexLock guard(lock_);
  ++held_jobs_;
  held_bytes_ += entry.bytes + kJobBytes;
  queue_.push_back(std::move(entry));
  changed_.notify_all();
}

void DatabaseThread::serve() {
  for (;;) {
    std::vector<Entry> batch = next_batch();
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
std::vector<DatabaseThread::Entry> DatabaseThread::next_batch() {
  const MutexLock guard(lock_);
  wait_for_jobs();
  const std::size_t count = std::min(queue_.size(), bounds_.batch);
  const auto end = queue_.begin() + static_cast<std::ptrdiff_t>(count);
  std::vector<Entry> batch(std::make_move_iterator(queue_.begin()), std::make_move_iterator(end));
  queue_.erase(queue_.begin(), end);
  return batch;
}

void DatabaseThread::wait_for_jobs() {
  while (queue_.empty() && !stopping_ && std::chrono::steady_clock::now() < next_look_)
    changed_.wait_until(lock_, next_look_);
  if (queue_.empty()) return;
  const auto end = std::chrono::steady_clock::now() + bounds_.gather;
  while (queue_.size() < bounds_.batch && hurrying_ == 0 && !stopping_ &&
         std::chrono::steady_clock::now() < end)
    changed_.wait_until(lock_, end);
}

void DatabaseThread::finish(const std::vector<Entry>& batch) {
  const auto now = std::chrono::steady_clock::now();
  const MutexLock guard(lock_);
  held_jobs_ -= batch.size();
  for (const Entry& entry : batch) {
    held_bytes_ -= entry.bytes + kJobBytes;
    times_.add(now - entry.given);
  }
  changed_.notify_all();
}

void DatabaseThread::run_batch(std::vector<Entry>& batch) {
  std::vector<std::exception_ptr> errors = run_jobs(batch);
  for (Entry& entry : batch)
    entry.work = nullptr;
  auto completions = std::make_shared<std::vector<Completion>>();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    if (batch[i].blocking) {
      batch[i].done(errors[i]);
    } else {
      completions->push_back({std::move(batch[i].done), std::move(errors[i])});
    }
  }
  if (completions->empty()) return;
  asio::post(loop_, [completions] {
    for (Completion& completion : *completions)
      std::exchange(completion.done, nullptr)(std::move(completion.error));
  });
}

// Returns the error of each job. If the transaction fails as a whole, for instance because the disk is full,
// each of its jobs gets a transaction of its own, so that only the jobs that cannot be stored fail.
std::vector<std::exception_ptr> DatabaseThread::run_jobs(std::vector<Entry>& batch) {
  std::vector<std::exception_ptr> errors(batch.size());
  if (run_together(batch, errors) || batch.size() == 1) return errors;
  for (std::size_t i = 0; i < batch.size(); ++i)
    run_together(std::span(batch).subspan(i, 1), std::span(errors).subspan(i, 1));
  return errors;
}

// Runs the jobs in one transaction. Returns false if none of them is stored although they could be tried
// again one by one. While another process holds the database's lock, each attempt waits long, so there is
// only one.
bool DatabaseThread::run_together(std::span<Entry> jobs, std::span<std::exception_ptr> errors) {
  Database& database = store_->database();
  bool begun = false;
  try {
    Transaction transaction(database);
    begun = true;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
      errors[i] = run_job(jobs[i]);
      if (!database.in_transaction()) {
        std::ranges::fill(errors, errors[i]);
        return false;
      }
    }
    transaction.commit();
    ++commits_;
    return true;
  } catch (const DatabaseError&) {
    std::ranges::fill(errors, std::current_exception());
    return !begun;
  }
}

// Returns the error of the job, or null. Undoes the changes of a job that fails.
std::exception_ptr DatabaseThread::run_job(Entry& entry) {
  Database& database = store_->database();
  std::exception_ptr error;
  try {
    database.execute("SAVEPOINT job");
    entry.work(*store_);
  } catch (...) {
    error = std::current_exception();
  }
  if (!database.in_transaction()) return error;
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
  std::function<void()> changed;
  try {
    const std::int64_t version = data_version(store_->database());
    if (std::exchange(version_, version) == version) return;
    const MutexLock guard(lock_);
    changed = outside_change_;
  } catch (const DatabaseError&) {
    return;  // the next look compares with the old version again
  }
  if (changed) asio::post(loop_, changed);
}

}  // namespace vlk::relay
