// Checks that a class is used by one thread only.
#pragma once

#include <cassert>
#include <thread>

namespace vlk::relay {

// A member of classes that live on the relay's one thread. The first check() remembers its thread; each later
// one asserts that the thread is the same. Without effect in release builds (NDEBUG).
class ThreadChecker {
 public:
#ifdef NDEBUG
  ThreadChecker() {}  // without it, GCC demands an initializer for each const member of this type
  void check() const {}
#else
  void check() const {
    if (thread_ == std::thread::id()) thread_ = std::this_thread::get_id();
    assert(thread_ == std::this_thread::get_id() && "used on a second thread");
  }

 private:
  mutable std::thread::id thread_;
#endif
};

}  // namespace vlk::relay
