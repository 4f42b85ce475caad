// Frees the data that OpenSSL keeps for each thread.
#pragma once

namespace vlk {

// Frees OpenSSL's data of the current thread when destroyed. The first object on each thread that uses
// OpenSSL and ends long before the process: a static OpenSSL on Windows gets no notice of a thread's end, so
// each thread would leak some kilobytes. A thread_local object would not do: its destructor runs during the
// thread's teardown and left other threads waiting forever.
struct [[nodiscard]] ThreadRecords {
  ThreadRecords() = default;
  ~ThreadRecords();
  ThreadRecords(const ThreadRecords&) = delete;
  ThreadRecords& operator=(const ThreadRecords&) = delete;
};

}  // namespace vlk
