// Frees the data that OpenSSL keeps for each thread.
#pragma once

namespace vlk {

// Frees OpenSSL's data of the current thread when destroyed. Each thread that uses OpenSSL and ends long
// before the process creates one as its first local object: on Windows, a statically linked OpenSSL is not
// notified when a thread ends, so each thread would leak some kilobytes. A thread_local object is not used,
// because its destructor runs during the thread's teardown, which made other threads wait forever.
struct [[nodiscard]] ThreadRecords {
  ThreadRecords() = default;
  ~ThreadRecords();
  ThreadRecords(const ThreadRecords&) = delete;
  ThreadRecords& operator=(const ThreadRecords&) = delete;
};

}  // namespace vlk
