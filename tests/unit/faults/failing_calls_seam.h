// The system and library calls of the agent, of which a test makes one after another fail.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "support/fail_nth.h"

namespace vantelink_test {

// How the chosen call goes wrong. Only the calls that can go wrong in that way are counted.
enum class CallFault {
  Error,        // fails; a transfer over a connection ends the connection too, so that no end waits for it
  TryAgain,     // send, recv: as Error, with the error of a call that would have to wait
  Interrupted,  // send, recv, read, write: a signal interrupts the call before it has moved a byte
  Short,        // send, recv, read, write: moves one byte; fread, fwrite: moves half of the bytes
  Ended,        // recv, read: the end of the stream
  StaysFailing  // this call and all later calls of the same name fail, as Error
};

// The calls that a test counts.
enum class CallGroup { Network, Files, Random, Threads, Memory /* of OpenSSL */ };

// While an object exists, the calls of the group are counted that other threads make than the one that
// created the object: that thread is the test's, and all others are the agent's. The call that `fail` chooses
// goes wrong. With CallGroup::Network, each name resolves to three addresses of the same server. Only one
// object may exist at a time. It may be destroyed while other threads wait in a call.
class FailingCalls {
 public:
  FailingCalls(CallGroup group, CallFault fault, FailNth& fail);
  ~FailingCalls();
  FailingCalls(const FailingCalls&) = delete;
  FailingCalls& operator=(const FailingCalls&) = delete;

  // The name of the call that went wrong; empty if none has. With the number of the call among those of its
  // name, counted from 1.
  std::string failed() const;
  std::string failed_with_number() const;

  // From now on no call is counted or goes wrong.
  void stop();

  // Counts a call of the calling thread, for the seam, which holds its lock. Whether the call must go wrong;
  // one that cannot go wrong in this object's way is not counted.
  bool goes_wrong(CallGroup group, const char* name, std::initializer_list<CallFault> faults);
  CallFault fault() const { return fault_; }
  CallGroup group() const { return group_; }

 private:
  const CallGroup group_;
  const CallFault fault_;
  FailNth& fail_;
  const std::thread::id test_ = std::this_thread::get_id();
  std::map<std::string, int> counts_;  // calls by name
  std::string failed_;
  int number_ = 0;
  bool stopped_ = false;
};

// The number of files and sockets that this process has open.
inline std::size_t descriptors() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Prints a test's number of calls that failed in turn, and records it in the test's report.
void report_failed_calls(int runs);

}  // namespace vantelink_test
