// A disk that fails: stands between SQLite and the files of its databases.
#pragma once

#include "support/fail_nth.h"

namespace vlk::relay {

// What a call that fails reports, and whether later calls work.
enum class DiskFault {
  ErrorOnce,  // one call fails with an error of input or output
  FullOnce,   // one write finds no room
  StaysFull,  // from one write on, none finds room
};

// While an object exists, all databases of the process that are opened use it. The calls by which SQLite
// writes, lengthens, shortens, syncs, opens, deletes and locks files are counted. Only one object may exist
// at a time; it outlives the databases that were opened meanwhile.
class FailingDisk {
 public:
  explicit FailingDisk(DiskFault fault);
  ~FailingDisk();
  FailingDisk(const FailingDisk&) = delete;
  FailingDisk& operator=(const FailingDisk&) = delete;

  // From now on, the calls are counted and the one that `fail` chooses fails. Null ends that: all calls work.
  // The calls may come from any one thread at a time.
  void fail(vantelink_test::FailNth* fail);
};

}  // namespace vlk::relay
