// A mutex, a scoped lock and a condition variable with Clang's thread-safety annotations. A clang build with
// -Wthread-safety proves that a guarded member is used only with its mutex held; other compilers ignore the
// annotations. https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#pragma once

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VLK_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define VLK_THREAD_ANNOTATION(attribute)
#endif

// The member is used only with the mutex held.
#define VLK_GUARDED_BY(mutex) VLK_THREAD_ANNOTATION(guarded_by(mutex))
// The object that the pointer points to is used only with the mutex held.
#define VLK_PT_GUARDED_BY(mutex) VLK_THREAD_ANNOTATION(pt_guarded_by(mutex))
// The function is called with the mutex held, and returns with it held.
#define VLK_REQUIRES(mutex) VLK_THREAD_ANNOTATION(requires_capability(mutex))
// The function locks the mutex itself, so its caller must not hold it.
#define VLK_EXCLUDES(mutex) VLK_THREAD_ANNOTATION(locks_excluded(mutex))

namespace vlk {

class VLK_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() VLK_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() VLK_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

// Holds the mutex from construction to destruction.
class [[nodiscard]] VLK_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VLK_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() VLK_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

class ConditionVariable {
 public:
  // Unlocks the mutex while it waits for a notification. May return without a notification, so callers check
  // their condition in a loop.
  void wait(Mutex& mutex) VLK_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();  // the caller still holds the mutex
  }
  void notify_all() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace vlk
