// Replacements of system and library calls, by which a test pauses, observes or fails a step of the client.
#pragma once

#include <cstddef>
#include <functional>

namespace vantelink_test {

// The functions are called on the thread that makes the call, before the call reaches the system. A function
// that is not set changes nothing.
struct SystemCalls {
  std::function<bool()> resolve;  // getaddrinfo; false makes it fail
  std::function<bool()> connect;  // connect; false makes it fail
  std::function<void(int, int)>
      set_option;                   // setsockopt, with the level and the option, of a number that is not 0
  std::function<void(int)> random;  // RAND_bytes, with the number of bytes
  std::function<void(std::size_t)> fwrite;  // fwrite, with the number of bytes
};

// Sets the functions for the lifetime of the object. Created before the threads that make the calls, and
// destroyed after them. Only one object may exist at a time.
class ReplacedSystemCalls {
 public:
  explicit ReplacedSystemCalls(SystemCalls calls);
  ~ReplacedSystemCalls();
  ReplacedSystemCalls(const ReplacedSystemCalls&) = delete;
  ReplacedSystemCalls& operator=(const ReplacedSystemCalls&) = delete;

 private:
  const SystemCalls calls_;
};

}  // namespace vantelink_test
