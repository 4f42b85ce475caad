// What OpenSSL keeps for each thread that used it.
#pragma once

namespace vlk {

// Stands first in a thread that uses OpenSSL and ends long before the process does, and frees its records
// when it ends: as a static library on Windows OpenSSL does not hear of that, and each thread would leave
// some kilobytes behind. Not a thread_local object: what those do while their thread is taken down left other
// threads waiting for ever.
struct ThreadRecords {
  ThreadRecords() = default;
  ~ThreadRecords();
  ThreadRecords(const ThreadRecords&) = delete;
  ThreadRecords& operator=(const ThreadRecords&) = delete;
};

}  // namespace vlk
