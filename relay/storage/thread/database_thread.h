// The thread on which all work on the database is done. The relay's loop gives it jobs and never waits for
// the disk.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "relay/base/counting/duration_counts.h"
#include "relay/base/threads/mutex.h"
#include "relay/storage/store.h"

namespace vlk::relay {

// The queue of jobs is full. The sender can try again later.
struct DatabaseBusy : DatabaseError {
  DatabaseBusy() : DatabaseError("The database has too much to do; try again later.") {}
};

// Runs jobs in the order in which they were given. Jobs of the last few milliseconds share a transaction as
// long as all of them write or all of them read, because each commit waits for the disk; a job that fails is
// undone alone. A job is done when its transaction is committed. A job may be undone and run a second time,
// so it keeps what it captures.
//
// While the connection to the database's server is lost, jobs that nobody waits for stay in the queue and are
// run as soon as the server is back; the others fail after a short time.
class DatabaseThread {
 public:
  struct Bounds {
    std::size_t jobs = 20'000;                 // queued or running
    std::size_t bytes = 16u << 20;             // of all queued or running jobs, as their senders state them
    std::size_t batch = 1000;                  // jobs of one transaction
    std::chrono::milliseconds gather{3};       // how long a transaction waits for further jobs
    std::chrono::milliseconds look{200};       // interval of the checks for changes by other processes
    std::chrono::milliseconds patience{5000};  // how long callers wait for a server that is lost
  };
  using Job = std::function<void(Store&)>;
  enum class Access { Writes, Reads };
  // Receives an empty text after the commit, otherwise what failed.
  using OnDone = std::function<void(const std::string& failure)>;
  // What has happened to the connection to the database's server.
  struct Reach {
    bool lost = false;
    std::string reason{};                // of a loss
    std::size_t waiting = 0;             // jobs that are queued or running
    std::chrono::milliseconds lasted{};  // of a loss that is over

    [[nodiscard]] std::string sentence() const;  // for the log
  };

  // Callbacks run on `loop`, whose context outlives this object.
  DatabaseThread(std::unique_ptr<Store> store, boost::asio::any_io_executor loop, const Bounds& bounds);
  DatabaseThread(std::unique_ptr<Store> store, boost::asio::any_io_executor loop)
      : DatabaseThread(std::move(store), std::move(loop), Bounds{}) {}
  // Runs all queued jobs first.
  ~DatabaseThread();
  DatabaseThread(const DatabaseThread&) = delete;
  DatabaseThread& operator=(const DatabaseThread&) = delete;

  // Runs a copy of `work(Store&)` and returns its result after the commit. Throws DatabaseBusy at once if the
  // queue is full, otherwise what `work` throws or the DatabaseError of the commit. `bytes` is the memory
  // that the job holds. To be called on the loop.
  //
  // `work` is a named object, because GCC 12 destroys a lambda expression within a co_await expression twice.
  template <class Work>
  [[nodiscard]] boost::asio::awaitable<std::invoke_result_t<Work&, Store&>> run(Work& work,
                                                                                std::size_t bytes = 0) {
    return finish(call_of(work), bytes, Access::Writes);
  }
  // The same for work that changes nothing: no other relay waits for it, and it waits for none. It sees what
  // the jobs before it have stored, and nothing that is stored meanwhile.
  template <class Work>
  [[nodiscard]] boost::asio::awaitable<std::invoke_result_t<Work&, Store&>> run_reading(Work& work) {
    return finish(call_of(work), 0, Access::Reads);
  }

  // Runs `work` without a wait, then calls `done` on the loop.
  void post(Job work, OnDone done, std::size_t bytes = 0);
  void post_reading(Job work, OnDone done);  // for work that changes nothing, as run_reading()

  // Runs `work(Store&)` and blocks the calling thread until the commit; for the start of the relay and for
  // tests. Throws like run(), but is not bounded.
  template <class Work>
  std::invoke_result_t<Work&, Store&> run_and_wait(Work work, Access access = Access::Writes) {
    using Result = std::invoke_result_t<Work&, Store&>;
    Call<Work> call{std::move(work), {}};
    submit_and_wait([&call](Store& store) { call.make(store); }, access);
    if constexpr (!std::is_void_v<Result>) return std::move(*call.result);
  }

  // Blocks the calling thread until all queued jobs are committed and their callbacks have been given to the
  // loop. Returns false if jobs are left because the server has been lost for longer than bounds().patience.
  bool drain() RELAY_EXCLUDES(lock_);

  // Sets a function that is called on the loop after another process has changed the database.
  void on_outside_change(std::function<void()> changed) RELAY_EXCLUDES(lock_);
  // Sets a function that is called on the loop with what other relays have reported of their machines.
  void on_reports(std::function<void(const std::vector<std::string>&)> heard) RELAY_EXCLUDES(lock_);
  // Sets a function that is called on the loop after the server was lost, and after it is back.
  void on_reach(std::function<void(const Reach&)> reached) RELAY_EXCLUDES(lock_);
  // Whether the database's server is lost. Callable from any thread.
  [[nodiscard]] bool lost() RELAY_EXCLUDES(lock_);

  [[nodiscard]] const boost::asio::any_io_executor& loop() const { return loop_; }

  // What the thread has to do, and what it has done since its start.
  struct Load {
    std::size_t jobs = 0;   // queued or running, of at most bounds().jobs
    std::size_t bytes = 0;  // the same for their memory
    DurationCounts times;   // from the giving of each job to its commit
  };
  [[nodiscard]] Load load() RELAY_EXCLUDES(lock_);
  [[nodiscard]] const Bounds& bounds() const { return bounds_; }

  // The number of transactions that were committed.
  [[nodiscard]] std::uint64_t commits() const { return commits_; }

 private:
  // A job's work and its result.
  template <class Work>
  struct Call {
    using Result = std::invoke_result_t<Work&, Store&>;
    Work work;
    std::optional<std::conditional_t<std::is_void_v<Result>, std::monostate, Result>> result;

    void make(Store& store) {
      if constexpr (std::is_void_v<Result>) {
        work(store);
      } else {
        result.emplace(work(store));
      }
    }
  };
  template <class Work>
  static std::shared_ptr<Call<std::decay_t<Work>>> call_of(Work& work) {
    return std::make_shared<Call<std::decay_t<Work>>>(Call<std::decay_t<Work>>{work, {}});
  }
  template <class Work>
  boost::asio::awaitable<std::invoke_result_t<Work&, Store&>> finish(std::shared_ptr<Call<Work>> call,
                                                                     std::size_t bytes, Access access) {
    Job job = [call](Store& store) { call->make(store); };
    co_await submit(std::move(job), bytes, access);
    if constexpr (!std::is_void_v<std::invoke_result_t<Work&, Store&>>) {
      co_return std::move(*call->result);
    }
  }
  using Done = std::function<void(std::exception_ptr)>;
  struct Entry {
    Job work;
    Done done{};  // empty after it was called
    std::size_t bytes = 0;
    enum class Waiter {
      Nobody,
      Loop,
      Thread
    } waiter = Waiter::Nobody;  // Thread: `done` is called on the database's
    Access access = Access::Writes;
    std::chrono::steady_clock::time_point given = std::chrono::steady_clock::now();
    std::exception_ptr error{};
    bool settled = false;  // stored, or failed for good
  };
  using Entries = std::vector<Entry>;
  struct Completion {
    Done done;
    std::exception_ptr error;
  };
  static constexpr std::size_t kJobBytes = 256;  // what a queued job costs besides what its sender states
  static constexpr char kNotReached[] = "The database cannot be reached; try again later.";
  // What one transaction came to. Undone: its jobs can be tried again one by one.
  enum class Outcome { Settled, Undone, Lost };

  [[nodiscard]] boost::asio::awaitable<void> submit(Job work, std::size_t bytes, Access access);
  void submit_and_wait(Job work, Access access);
  [[nodiscard]] bool has_room(std::size_t bytes) RELAY_EXCLUDES(lock_);
  void enqueue(Entry entry) RELAY_EXCLUDES(lock_);

  void serve();
  [[nodiscard]] Entries next_batch() RELAY_EXCLUDES(lock_);
  void wait_for_jobs() RELAY_REQUIRES(lock_);
  void finish(const Entries& batch) RELAY_EXCLUDES(lock_);
  void run_batch(Entries& batch);
  void run_jobs(Entries& batch);
  void post_entry(Entry entry, OnDone done);
  [[nodiscard]] Outcome run_together(std::span<Entry* const> jobs);
  [[nodiscard]] std::exception_ptr run_job(Entry& entry);
  void complete(std::span<Entry* const> jobs);
  void look_for_changes() RELAY_EXCLUDES(lock_);

  // What happens while the server is lost.
  [[nodiscard]] bool connect_again(Entries& batch) RELAY_EXCLUDES(lock_);
  [[nodiscard]] bool try_to_connect();
  void give_up_waiting(Entries& batch) RELAY_EXCLUDES(lock_);
  [[nodiscard]] bool out_of_patience() const RELAY_REQUIRES(lock_);
  void note_loss() RELAY_EXCLUDES(lock_);
  void note_return() RELAY_EXCLUDES(lock_);
  void report(const Reach& reach) RELAY_REQUIRES(lock_);

  const std::unique_ptr<Store> store_;
  const boost::asio::any_io_executor loop_;
  const Bounds bounds_;
  std::atomic<std::uint64_t> commits_ = 0;
  std::chrono::steady_clock::time_point next_look_{};
  std::vector<Entry*> committing_;  // the jobs of the last commit that was begun
  std::string loss_;                // why the server was lost

  Mutex lock_;
  ConditionVariable changed_;
  std::deque<Entry> queue_ RELAY_GUARDED_BY(lock_);
  std::size_t held_jobs_ RELAY_GUARDED_BY(lock_) = 0;  // queued or running
  std::size_t held_bytes_ RELAY_GUARDED_BY(lock_) = 0;
  DurationCounts times_ RELAY_GUARDED_BY(lock_);
  std::size_t hurrying_ RELAY_GUARDED_BY(lock_) = 0;  // callers that block until a job is done
  bool stopping_ RELAY_GUARDED_BY(lock_) = false;
  std::function<void()> outside_change_ RELAY_GUARDED_BY(lock_);
  std::function<void(const std::vector<std::string>&)> heard_ RELAY_GUARDED_BY(lock_);
  std::function<void(const Reach&)> reached_ RELAY_GUARDED_BY(lock_);
  std::optional<std::chrono::steady_clock::time_point> lost_since_ RELAY_GUARDED_BY(lock_);
  std::thread thread_;
};

}  // namespace vlk::relay
