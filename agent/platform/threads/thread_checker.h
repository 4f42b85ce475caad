// Checks in debug builds that an object is used on one thread only. Release builds (NDEBUG) do not contain
// the check.
#pragma once

#ifdef NDEBUG
#include <type_traits>
#else
#include <cassert>
#include <thread>
#endif

namespace vlk {

// Declared as a member with [[no_unique_address]], so that it uses no memory in release builds.
class ThreadChecker {
 public:
#ifdef NDEBUG
  void rebind() {}
  void check() const {}
#else
  // Makes the calling thread the only one that may use the object, as the constructor does.
  void rebind() {
    owner_ = std::this_thread::get_id();
  }

  // Ends the program with a message if it is called on any other thread.
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
