// Files and folders that only the relay's user may open.
#include "relay/net/private_files.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

class PrivateFilesTest : public testing::Test {
 protected:
  // The sentence with which the file or folder is refused; empty if it is accepted.
  static std::string refusal(const std::string& path) {
    try {
      require_private(path, "the key");
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
    return {};
  }
  static unsigned mode_of(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
  }
  void put(const std::string& text, unsigned mode) {
    folder_.write("key", text);
    ::chmod(file_.c_str(), mode);
  }

  const vantelink_test::TempFolder folder_;
  const std::string file_ = folder_.path() / "key";
};

TEST_F(PrivateFilesTest, FileThatAnotherUserCanOpenIsRefusedWithTheCommandThatRepairsIt) {
  for (const unsigned mode : {0600u, 0400u, 0700u}) {
    put("secret", mode);
    EXPECT_EQ(refusal(file_), "") << mode;
  }
  for (const unsigned mode : {0640u, 0604u, 0620u, 0602u, 0610u, 0601u}) {
    put("secret", mode);
    EXPECT_TRUE(refusal(file_).ends_with("run: chmod 600 " + file_)) << mode << refusal(file_);
  }
  put("secret", 0644);
  EXPECT_EQ(refusal(file_),
            "the key " + file_ + " is open to other users (mode 0644); run: chmod 600 " + file_);
}

TEST_F(PrivateFilesTest, FolderThatAnotherUserCanOpenIsRefusedWithTheCommandThatRepairsIt) {
  const std::string folder = folder_.path();
  ::chmod(folder.c_str(), 0750);
  EXPECT_EQ(refusal(folder),
            "the key " + folder + " is open to other users (mode 0750); run: chmod 700 " + folder);
  ::chmod(folder.c_str(), 0700);
  EXPECT_EQ(refusal(folder), "");
}

TEST_F(PrivateFilesTest, MissingFileIsRefused) {
  EXPECT_EQ(refusal(file_), "cannot read the key " + file_ + ": No such file or directory");
}

TEST_F(PrivateFilesTest, FolderOfAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  const std::string folder = folder_.path();
  ::chmod(folder.c_str(), 0700);
  const pid_t child = ::fork();
  if (child == 0) {
    const bool other = ::setuid(65534) == 0;
    ::_exit(other && refusal(folder).find("belongs to another user (id 0)") != std::string::npos ? 0 : 1);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(PrivateFilesTest, WrittenFileHasTheGivenModeAndReplacesTheOldOne) {
  write_durably(file_, "first", 0600);
  EXPECT_EQ(folder_.read("key"), "first");
  EXPECT_EQ(mode_of(file_), 0600u);
  write_durably(file_, "second", 0600);
  EXPECT_EQ(folder_.read("key"), "second");
  EXPECT_FALSE(std::filesystem::exists(file_ + ".new"));
}

TEST_F(PrivateFilesTest, DraftOfAnInterruptedWriteDoesNotPassItsModeOn) {
  folder_.write("key.new", "an incomplete and longer text");
  ::chmod((file_ + ".new").c_str(), 0644);
  write_durably(file_, "secret", 0600);
  EXPECT_EQ(folder_.read("key"), "secret");
  EXPECT_EQ(mode_of(file_), 0600u);
}

TEST_F(PrivateFilesTest, FailedWriteIsReportedAndKeepsTheOldFile) {
  EXPECT_THROW(write_durably(folder_.path() / "none/key", "text", 0600), std::runtime_error);
  std::filesystem::create_directory(file_ + ".new");
  folder_.write("key", "old");
  EXPECT_THROW(write_durably(file_, "new", 0600), std::runtime_error);
  EXPECT_EQ(folder_.read("key"), "old");
}

}  // namespace
}  // namespace vlk::relay
