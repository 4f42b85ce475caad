// Copies of the trail for log collectors: a file that rotates, and syslog.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "relay/storage/follow/follower.h"
#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/trail_fixture.h"

namespace vlk::relay {
namespace {

class FollowTest : public TrailTest {
 protected:
  void add(int count) {
    for (int i = 0; i < count; ++i)
      append({trail_entry<TrailKind::FolderListed>({"anna", "m", "192.0.2.7:1", 3}, "C:\\path", i)});
  }

  // Copies the rows that are there: the follower does so before it ends.
  void follow(TrailLogFile::Rotation rotation = {}) {
    TrailFollower(file, std::make_unique<TrailLogFile>(log(), rotation),
                  [this](const std::string& problem) { problems += problem + '\n'; });
  }

  [[nodiscard]] std::string log() const { return (folder->path() / "trail.jsonl").string(); }

  static std::string read(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  static std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  std::string problems;
};

TEST_F(FollowTest, FileContinuesAfterItsLastRow) {
  add(3);
  follow();
  add(2);
  follow();
  EXPECT_EQ(lines(read(log())), 5u);
  EXPECT_TRUE(verify_export(log(), std::nullopt).intact);
  struct stat status {};
  ASSERT_EQ(::stat(log().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(problems, "");
}

TEST_F(FollowTest, RowsFromARestoreOnAreCopiedAlthoughTheFileHasHigherIds) {
  add(2);
  follow();
  add(5);
  follow();
  EXPECT_EQ(lines(read(log())), 7u);
  // The state of the backup, and the rows that a restore and the time after it add.
  tamper("DELETE FROM trail WHERE id > 2");
  append({trail_entry<TrailKind::BackupRestored>({kTrailCommandLine}, "/backup")});
  add(1);
  follow();
  EXPECT_EQ(lines(read(log())), 9u);
  add(1);
  follow();
  EXPECT_EQ(lines(read(log())), 10u) << "the file ends with rows of this trail again";
}

TEST_F(FollowTest, PartOfALineThatACrashLeftIsWrittenAgain) {
  add(3);
  follow();
  const std::string text = read(log());
  std::filesystem::resize_file(log(), text.size() - 20);
  follow();
  EXPECT_EQ(read(log()), text);
}

TEST_F(FollowTest, FileRotatesAndKeepsTheNumberOfFiles) {
  add(40);
  follow({.bytes = 600, .keep = 2});
  EXPECT_TRUE(std::filesystem::exists(log() + ".1"));
  EXPECT_TRUE(std::filesystem::exists(log() + ".2"));
  EXPECT_FALSE(std::filesystem::exists(log() + ".3"));
  EXPECT_GE(read(log() + ".1").size(), 600u);
  EXPECT_LT(read(log() + ".1").size(), 1000u);
  const std::string kept = read(log() + ".2") + read(log() + ".1") + read(log());
  EXPECT_NE(kept.find("\"id\":40,"), std::string::npos);
  folder->write("kept", kept);
  EXPECT_TRUE(verify_export((folder->path() / "kept").string(), std::nullopt).intact);
}

TEST_F(FollowTest, FileThatWasMovedIsContinuedInANewOne) {
  add(3);
  follow();
  std::filesystem::rename(log(), log() + ".1");
  add(2);
  follow();
  EXPECT_EQ(lines(read(log())), 2u);
}

TEST_F(FollowTest, FailureIsReportedOnceAndNothingIsLost) {
  add(2);
  std::filesystem::create_directory(log());
  follow();
  EXPECT_EQ(lines(problems), 1u) << problems;
  std::filesystem::remove(log());
  follow();
  EXPECT_EQ(lines(read(log())), 2u);
}

TEST_F(FollowTest, SyslogMessageHasTheFormOfRfc5424) {
  add(1);
  const std::string path = (folder->path() / "log").string();
  const int receiver = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const TrailRow row = rows().at(0);
  TrailSyslog(path).write(row);
  std::string message(10'000, '\0');
  const ssize_t size = ::recv(receiver, message.data(), message.size(), MSG_DONTWAIT);
  ::close(receiver);
  ASSERT_GT(size, 0);
  message.resize(static_cast<std::size_t>(size));
  EXPECT_TRUE(message.starts_with("<86>1 " + iso_time(row.entry.time_ms) + ' ')) << message;
  EXPECT_NE(message.find(" vantelink-relay " + std::to_string(::getpid()) + " folder.listed - {\"id\":1,"),
            std::string::npos)
      << message;
}

TEST_F(FollowTest, SyslogRefusesATargetOfAnotherForm) {
  for (const char* target : {"", "host", ":514", "host:"})
    EXPECT_THROW(TrailSyslog{target}, std::runtime_error) << target;
  EXPECT_THROW(TrailSyslog("/nonexistent").write(TrailRow{}), std::runtime_error);
}

}  // namespace
}  // namespace vlk::relay
