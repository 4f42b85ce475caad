// The database after its process was killed, and a file that is not a database.
#include "relay/storage/store.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

// Adds machines until the process is killed, and writes the number of each to `pipe` after it is stored.
[[noreturn]] void add_machines_forever(const std::string& file, int pipe) {
  Store store(file);
  for (std::uint32_t number = 0;; ++number) {
    store.add_agent({std::to_string(number), "name", "machine", "windows", "", 1}, {1, 2, 3}, "address");
    if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
  }
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
    for (const AgentRecord& agent : store.agents())
      ids.insert(agent.id);
    for (std::uint32_t number = 0; number <= stored; ++number) {
      EXPECT_TRUE(ids.contains(std::to_string(number))) << number << " of " << stored;
    }
    // The database can still be written.
    store.add_agent({"after", "name", "machine", "windows", "", 1}, {1}, "address");
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
