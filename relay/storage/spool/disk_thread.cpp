// The queue of the spool's jobs.
#include "relay/storage/spool/disk_thread.h"

#include <chrono>
#include <iterator>
#include <utility>

#include <boost/asio/post.hpp>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

// How long the thread waits for memory when it cannot report to the loop.
constexpr std::chrono::milliseconds kShortage{10};

}  // namespace

DiskThread::DiskThread(asio::any_io_executor loop) : loop_(std::move(loop)), thread_([this] { serve(); }) {}

DiskThread::~DiskThread() {
  {
    const MutexLock guard(lock_);
    stopping_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

void DiskThread::enqueue(Job job) {
  std::list<Job> one;
  one.push_back(std::move(job));
  const MutexLock guard(lock_);
  queue_.splice(queue_.end(), one);
  changed_.notify_all();
}

void DiskThread::drop(const void* owner) {
  std::list<Job> dropped;  // is destroyed after the lock is free again
  const MutexLock guard(lock_);
  for (auto job = queue_.begin(); job != queue_.end();) {
    const auto following = std::next(job);
    if (job->owner == owner) dropped.splice(dropped.end(), queue_, job);
    job = following;
  }
}

void DiskThread::serve() {
  std::list<Job> running;
  while (next(running)) {
    Job& job = running.front();
    try {
      job.work();
    } catch (...) {
      // Memory is short. The job has no result then, which its end takes for a failure.
    }
    job.work = nullptr;
    if (job.finish) {
      hand_over(running);
    } else {
      running.clear();
    }
    rest();
  }
}

// Waits for a job. Returns false at the end.
bool DiskThread::next(std::list<Job>& running) {
  const MutexLock guard(lock_);
  while (queue_.empty() && !stopping_)
    changed_.wait(lock_);
  if (stopping_) return false;
  running.splice(running.begin(), queue_, queue_.begin());
  running_ = true;
  return true;
}

void DiskThread::rest() {
  const MutexLock guard(lock_);
  running_ = false;
  changed_.notify_all();
}

void DiskThread::drain() {
  const MutexLock guard(lock_);
  while (!queue_.empty() || running_)
    changed_.wait(lock_);
}

// Lets the loop finish the job. Tries again while memory is too short for it, because a session would wait
// for the end of a job for ever.
void DiskThread::hand_over(std::list<Job>& ended) {
  {
    const MutexLock guard(lock_);
    ended_.splice(ended_.end(), ended);
  }
  for (;;) {
    try {
      return asio::post(loop_, [weak = std::weak_ptr<DiskThread*>(self_)] {
        if (const auto self = weak.lock()) (*self)->finish_one();
      });
    } catch (...) {
      const MutexLock guard(lock_);
      if (stopping_) return;
      changed_.wait_until(lock_, std::chrono::steady_clock::now() + kShortage);
    }
  }
}

// The end of a job may destroy this object.
void DiskThread::finish_one() {
  std::list<Job> one;
  {
    const MutexLock guard(lock_);
    if (ended_.empty()) return;
    one.splice(one.begin(), ended_, ended_.begin());
  }
  one.front().finish();
}

}  // namespace vlk::relay
