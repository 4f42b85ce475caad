// Checks that a class is used by one thread only.
#pragma once

#include <cassert>
#include <thread>

namespace vlk::relay {

// A member of each class that is used only on the relay's one thread. The first call of check() remembers the
// calling thread; each later call asserts that the thread is the same. In release builds (NDEBUG) it does
// nothing.
class ThreadChecker {
 public:
  // While a Setup exists, check() remembers and asserts nothing on the thread that made the Setup. For the
  // construction of objects that another thread uses afterwards.
  class Setup {
   public:
    Setup() { ++open(); }
    ~Setup() { --open(); }
    Setup(const Setup&) = delete;
    Setup& operator=(const Setup&) = delete;
    [[nodiscard]] static int& open() {
      thread_local int count = 0;
      return count;
    }
  };

#ifdef NDEBUG
  // A const member without an initializer needs a constructor that is written out.
  ThreadChecker() {}  // NOLINT(modernize-use-equals-default)
  void check() const {}
#else
  void check() const {
    if (Setup::open() > 0) return;
    if (thread_ == std::thread::id()) thread_ = std::this_thread::get_id();
    assert(thread_ == std::this_thread::get_id() && "used on a second thread");
  }

 private:
  mutable std::thread::id thread_;
#endif
};

}  // namespace vlk::relay
