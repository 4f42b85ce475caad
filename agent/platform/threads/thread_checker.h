// Checks in debug builds that an object is used on one thread only. Release builds (NDEBUG) contain nothing
// of it.
#pragma once

#ifdef NDEBUG
#include <type_traits>
#else
#include <cassert>
#include <thread>
#endif

namespace vlk {

// Declared as a member with [[no_unique_address]], so that it takes no room in release builds.
class ThreadChecker {
 public:
#ifdef NDEBUG
  void rebind() {}
  void check() const {}
#else
  // The calling thread becomes the only one allowed, as at construction.
  void rebind() {
    owner_ = std::this_thread::get_id();
  }

  // Ends the program with a message when called on another thread.
  void check() const {
    assert(std::this_thread::get_id() == owner_ && "used on another thread than its own");
  }

 private:
  std::thread::id owner_ = std::this_thread::get_id();
#endif
};

#ifdef NDEBUG
static_assert(std::is_empty_v<ThreadChecker>);
#endif

}  // namespace vlk
