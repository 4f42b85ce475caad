// The thread on which the spool's files are written and read.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <thread>

#include <boost/asio/any_io_executor.hpp>

#include "relay/base/threads/mutex.h"

namespace vlk::relay {

// Runs jobs in the order in which they were given. The queue has no limit of its own: the caller limits
// what its jobs hold. Used on the loop's thread.
class DiskThread {
 public:
  struct Job {
    const void* owner = nullptr;   // for drop()
    std::function<void()> work;    // runs on the thread and is destroyed there; what it throws is ignored
    std::function<void()> finish;  // runs on the loop and is destroyed there; may be empty
  };

  // `loop` runs the jobs' ends; its context outlives this object.
  explicit DiskThread(boost::asio::any_io_executor loop);
  // Waits for the job that runs and drops the others. No job is finished afterwards.
  ~DiskThread();
  DiskThread(const DiskThread&) = delete;
  DiskThread& operator=(const DiskThread&) = delete;

  void enqueue(Job job) RELAY_EXCLUDES(lock_);
  // Waits until all jobs that were given are done; their ends may still have to run on the loop.
  void drain() RELAY_EXCLUDES(lock_);
  // Removes the jobs of `owner` that have not begun. One that runs, or has run, is still finished.
  void drop(const void* owner) RELAY_EXCLUDES(lock_);

 private:
  void serve();
  [[nodiscard]] bool next(std::list<Job>& running) RELAY_EXCLUDES(lock_);
  void rest() RELAY_EXCLUDES(lock_);
  void hand_over(std::list<Job>& ended) RELAY_EXCLUDES(lock_);
  void finish_one() RELAY_EXCLUDES(lock_);

  const boost::asio::any_io_executor loop_;
  // What is posted to the loop looks here whether this object still exists.
  const std::shared_ptr<DiskThread*> self_ = std::make_shared<DiskThread*>(this);

  // Jobs go from list to list without an allocation, which could fail on the thread.
  Mutex lock_;
  ConditionVariable changed_;
  std::list<Job> queue_ RELAY_GUARDED_BY(lock_);
  std::list<Job> ended_ RELAY_GUARDED_BY(lock_);  // to be finished on the loop
  bool running_ RELAY_GUARDED_BY(lock_) = false;  // a job is done at present
  bool stopping_ RELAY_GUARDED_BY(lock_) = false;
  std::thread thread_;
};

}  // namespace vlk::relay
