// Passes SQLite's calls on to the system's disk, except for the one that fails.
#include "relay/storage/faults/failing_disk.h"

#include <cstring>
#include <mutex>
#include <stdexcept>

#include <sqlite3.h>

namespace vlk::relay {
namespace {

constexpr char kName[] = "failing-disk";

// SQLite allocates `szOsFile` bytes for a file; the system's own file follows this.
struct File {
  sqlite3_file base;
};
sqlite3_file* system_file(sqlite3_file* file) {
  return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
}

struct State {
  std::mutex lock;
  sqlite3_vfs* system = nullptr;
  sqlite3_vfs vfs{};
  DiskFault fault = DiskFault::ErrorOnce;
  vantelink_test::FailNth* fail = nullptr;
};
State& state() {
  static State the_state;
  return the_state;
}

// Counts a call. Returns SQLITE_OK, or the error with which the call fails.
int count(bool needs_room, int error) {
  State& the = state();
  const std::lock_guard hold(the.lock);
  if (the.fail == nullptr || (!needs_room && the.fault != DiskFault::ErrorOnce)) return SQLITE_OK;
  const bool fails = the.fail->fails() || (the.fault == DiskFault::StaysFull && the.fail->reached());
  if (!fails) return SQLITE_OK;
  return the.fault == DiskFault::ErrorOnce ? error : SQLITE_FULL;
}

// Makes a method that counts the call and passes it on.
template <auto Method, int Error, bool NeedsRoom, typename... Args>
int counted(sqlite3_file* file, Args... args) {
  if (const int error = count(NeedsRoom, Error)) return error;
  sqlite3_file* const real = system_file(file);
  return (real->pMethods->*Method)(real, args...);
}
template <auto Method, typename... Args>
int passed(sqlite3_file* file, Args... args) {
  sqlite3_file* const real = system_file(file);
  return (real->pMethods->*Method)(real, args...);
}
template <auto Method>
void passed_barrier(sqlite3_file* file) {
  sqlite3_file* const real = system_file(file);
  (real->pMethods->*Method)(real);
}

int close_file(sqlite3_file* file) {
  sqlite3_file* const real = system_file(file);
  const int result = real->pMethods != nullptr ? real->pMethods->xClose(real) : SQLITE_OK;
  file->pMethods = nullptr;
  return result;
}

const sqlite3_io_methods& file_methods() {
  using Io = sqlite3_io_methods;
  static const Io methods = [] {
    Io io{};
    io.iVersion = 2;  // without memory-mapped pages, whose writes no call announces
    io.xClose = close_file;
    io.xRead = passed<&Io::xRead, void*, int, sqlite3_int64>;
    io.xWrite = counted<&Io::xWrite, SQLITE_IOERR_WRITE, true, const void*, int, sqlite3_int64>;
    io.xTruncate = counted<&Io::xTruncate, SQLITE_IOERR_TRUNCATE, false, sqlite3_int64>;
    io.xSync = counted<&Io::xSync, SQLITE_IOERR_FSYNC, true, int>;
    io.xFileSize = passed<&Io::xFileSize, sqlite3_int64*>;
    io.xLock = counted<&Io::xLock, SQLITE_IOERR_LOCK, false, int>;
    io.xUnlock = passed<&Io::xUnlock, int>;
    io.xCheckReservedLock = passed<&Io::xCheckReservedLock, int*>;
    io.xFileControl = passed<&Io::xFileControl, int, void*>;
    io.xSectorSize = passed<&Io::xSectorSize>;
    io.xDeviceCharacteristics = passed<&Io::xDeviceCharacteristics>;
    io.xShmMap = counted<&Io::xShmMap, SQLITE_IOERR_SHMMAP, true, int, int, int, void volatile**>;
    io.xShmLock = passed<&Io::xShmLock, int, int, int>;
    io.xShmBarrier = passed_barrier<&Io::xShmBarrier>;
    io.xShmUnmap = passed<&Io::xShmUnmap, int>;
    return io;
  }();
  return methods;
}

int open_file(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
  file->pMethods = nullptr;
  if (const int error = count(false, SQLITE_CANTOPEN)) return error;
  sqlite3_vfs* const system = state().system;
  const int result = system->xOpen(system, name, system_file(file), flags, out_flags);
  if (system_file(file)->pMethods != nullptr) file->pMethods = &file_methods();
  return result;
}

int delete_file(sqlite3_vfs*, const char* name, int sync_folder) {
  if (const int error = count(false, SQLITE_IOERR_DELETE)) return error;
  return state().system->xDelete(state().system, name, sync_folder);
}

}  // namespace

FailingDisk::FailingDisk(DiskFault fault) {
  State& the = state();
  the.system = sqlite3_vfs_find(nullptr);
  if (the.system == nullptr || std::strcmp(the.system->zName, kName) == 0)
    throw std::logic_error("there is a failing disk already");
  the.fault = fault;
  the.fail = nullptr;
  // All other functions of the system's disk, which get its own record, work for this one too.
  the.vfs = *the.system;
  the.vfs.zName = kName;
  the.vfs.szOsFile += static_cast<int>(sizeof(File));
  the.vfs.xOpen = open_file;
  the.vfs.xDelete = delete_file;
  sqlite3_vfs_register(&the.vfs, 1);
}

FailingDisk::~FailingDisk() {
  sqlite3_vfs_unregister(&state().vfs);
  sqlite3_vfs_register(state().system, 1);
}

void FailingDisk::fail(vantelink_test::FailNth* fail) {
  const std::lock_guard hold(state().lock);
  state().fail = fail;
}

}  // namespace vlk::relay
