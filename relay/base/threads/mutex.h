// A mutex, a scoped lock and a condition variable with Clang's thread-safety annotations, which other
// compilers ignore. https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// NOLINTBEGIN(cppcoreguidelines-macro-usage): attributes cannot be functions
#if defined(__clang__)
#define RELAY_ANNOTATION(attribute) __attribute__((attribute))
#else
#define RELAY_ANNOTATION(attribute)
#endif

// The member is used only with the mutex held.
#define RELAY_GUARDED_BY(mutex) RELAY_ANNOTATION(guarded_by(mutex))
// The function is called with the mutex held.
#define RELAY_REQUIRES(mutex) RELAY_ANNOTATION(requires_capability(mutex))
// The function locks the mutex itself, so its caller must not hold it.
#define RELAY_EXCLUDES(mutex) RELAY_ANNOTATION(locks_excluded(mutex))
// NOLINTEND(cppcoreguidelines-macro-usage)

namespace vlk::relay {

class RELAY_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() RELAY_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() RELAY_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds the mutex from construction to destruction.
class [[nodiscard]] RELAY_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) RELAY_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() RELAY_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Its waits may return without a notification, so callers check their condition in a loop.
class ConditionVariable {
 public:
  void wait(Mutex& mutex) RELAY_REQUIRES(mutex) { condition_.wait(mutex); }
  void wait_until(Mutex& mutex, std::chrono::steady_clock::time_point when) RELAY_REQUIRES(mutex) {
    condition_.wait_until(mutex, when);
  }
  void notify_all() { condition_.notify_all(); }

 private:
  std::condition_variable_any condition_;
};

}  // namespace vlk::relay
