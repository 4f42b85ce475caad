// The database after its process was killed, and a file that is not a database.
#include "relay/storage/store.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "relay/storage/machines/machine_store.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

void add(Store& store, const std::string& id) {
  Transaction transaction(store.database());
  add_machine(store.database(), {.id = id});
  transaction.commit();
}

// Adds machines until the process is killed, and writes the number of each to `pipe` after it is stored.
[[noreturn]] void add_machines_forever(const std::string& file, int pipe) {
  Store store(file);
  for (std::uint32_t number = 0;; ++number) {
    add(store, std::to_string(number));
    if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
  }
}

// Whether this process holds a lock on the file, as another process sees it.
bool is_locked(const std::string& file) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool asked = ::fcntl(descriptor, F_GETLK, &lock) == 0;
    ::_exit(asked && lock.l_type != F_UNLCK ? 0 : 1);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  return status == 0;
}

// Without the lock, the next process that closes the database deletes the write-ahead log of this one.
TEST(Store, FurtherConnectionOfTheProcessKeepsTheLockOfTheFirst) {
  const vantelink_test::TempFolder folder;
  const std::string file = (folder.path() / "relay.db").string();
  const Store first(file);
  ASSERT_TRUE(is_locked(file));
  const Store second(file);
  EXPECT_TRUE(is_locked(file));
}

TEST(Store, RowsAreStillStoredAfterTheProcessWasKilled) {
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  const std::string folder = ::mkdtemp(name);
  const std::string file = folder + "/relay.db";
  std::uint32_t stored = 0;
  for (const std::uint32_t enough : {1u, 7u, 40u}) {
    std::filesystem::remove(file);
    std::filesystem::remove(file + "-wal");
    std::filesystem::remove(file + "-shm");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) add_machines_forever(file, ends[1]);
    ::close(ends[1]);
    while (::read(ends[0], &stored, sizeof stored) == sizeof stored && stored < enough) {
    }
    ::kill(child, SIGKILL);
    while (::read(ends[0], &stored, sizeof stored) == sizeof stored) {
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);

    Store store(file);
    std::set<std::string> ids;
    for (const MachineRecord& machine : load_machines(store.database()))
      ids.insert(machine.id);
    for (std::uint32_t number = 0; number <= stored; ++number) {
      EXPECT_TRUE(ids.contains(std::to_string(number))) << number << " of " << stored;
    }
    // The database can still be written.
    add(store, "after");
  }
  std::filesystem::remove_all(folder);
}

TEST(Store, FileThatIsNotADatabaseIsRefusedAndKeepsItsSize) {
  char name[] = "/tmp/vantelink-relay-test-XXXXXX";
  const std::string folder = ::mkdtemp(name);
  const std::string file = folder + "/relay.db";
  const std::string text(4096, 'n');
  std::FILE* stream = std::fopen(file.c_str(), "w");
  ASSERT_NE(stream, nullptr);
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fclose(stream);
  EXPECT_THROW(Store{file}, DatabaseError);
  EXPECT_EQ(std::filesystem::file_size(file), text.size());
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vlk::relay
