// The commands backup and restore, started as by an operator, beside a relay that runs.
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "relay/program/folder/data_folder.h"
#include "relay/program/folder/exchange.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

using vantelink_test::RelayProcess;

class BackupProcessTest : public testing::Test {
 protected:
  // Runs a command of the shell until it exits. Stores its output in `output_` and returns its exit code.
  int shell(const std::string& command) {
    const std::string all = "( " + command + " ) < /dev/null > " + folder_.path().string() + "/output 2>&1";
    const int status = std::system(all.c_str());
    output_ = folder_.read("output");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // A relay that should have been refused is ended.
  int run(const std::string& arguments) {
    return shell("timeout 60 " + RelayProcess::program() + ' ' + arguments);
  }
  int backup() { return run("backup " + file_ + " --data " + data_); }
  int restore(const std::string& more = {}) {
    return run("restore " + file_ + " --data " + data_ + ' ' + more);
  }
  bool said(const std::string& text) const { return output_.find(text) != std::string::npos; }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  const std::string file_ = folder_.path() / "relay.backup";
  std::string output_;
};

TEST_F(BackupProcessTest, RunningRelayIsBackedUpAndTheRestoredOneStarts) {
  {
    const RelayProcess relay(data_, {});
    ASSERT_EQ(backup(), 0) << output_;
    EXPECT_TRUE(output_.starts_with("backed up: 0 machines, 1 person, ")) << output_;
    EXPECT_TRUE(said(", to " + file_ + " (0.")) << output_;
    EXPECT_EQ(restore("--replace"), 1);
    EXPECT_TRUE(said("stop the relay")) << output_;
  }
  EXPECT_EQ(restore(), 1) << output_;
  ASSERT_EQ(restore("--replace"), 0) << output_;
  EXPECT_TRUE(said("All people log in again.")) << output_;
  const RelayProcess again(data_, {});
  EXPECT_EQ(again.logged("First start"), 0) << again.log();
  EXPECT_EQ(run("verify-trail --data " + data_), 0) << output_;
}

TEST_F(BackupProcessTest, SecondRelayOnAFolderIsRefusedUntilTheFirstIsGone) {
  RelayProcess relay(data_, {});
  EXPECT_EQ(run("--address 127.0.0.1 --port 0 --data " + data_), 1);
  EXPECT_TRUE(said("a relay uses the data folder " + data_ + " already (process " +
                   std::to_string(relay.pid()) + "); stop it, or name another folder with --data"))
      << output_;
  relay.kill();
  const RelayProcess again(data_, {});
  EXPECT_GT(again.port(), 0);
}

TEST_F(BackupProcessTest, FullDiskLeavesTheOlderBackupAndTheOldData) {
  { const RelayProcess relay(data_, {}); }
  ASSERT_EQ(backup(), 0) << output_;
  const std::string older = folder_.read("relay.backup");
  const std::string limit = "ulimit -f 40; ";  // less than the database has
  EXPECT_EQ(shell(limit + RelayProcess::program() + " backup " + file_ + " --data " + data_), 1) << output_;
  EXPECT_TRUE(said("the backup could not be made, " + file_ + " is as it was")) << output_;
  EXPECT_EQ(folder_.read("relay.backup"), older);
  EXPECT_FALSE(std::filesystem::exists(file_ + ".new"));
  const std::string database = folder_.read("data/relay.db");
  EXPECT_EQ(shell(limit + RelayProcess::program() + " restore " + file_ + " --replace --data " + data_), 1);
  EXPECT_TRUE(said("was not restored, and the data are as they were")) << output_;
  EXPECT_EQ(folder_.read("data/relay.db"), database);
  EXPECT_FALSE(std::filesystem::exists(data_ + "/restore.new"));
  EXPECT_EQ(backup(), 0) << output_;
}

TEST_F(BackupProcessTest, StartOfTheRelayCompletesARestoreThatWasCutOff) {
  { const RelayProcess relay(data_, {}); }
  // The new state is a database without the relay's tables, which the start then makes.
  const std::filesystem::path draft = make_draft(data_);
  folder_.write("data/restore.new/relay.db", "");
  commit_draft(data_, {"relay.db"}, "kept");
  const RelayProcess relay(data_, {});
  EXPECT_EQ(relay.logged("First start"), 1) << relay.log();
  EXPECT_TRUE(std::filesystem::exists(data_ + "/kept/relay.db"));
  EXPECT_FALSE(exchange_is_cut_off(data_));
}

TEST_F(BackupProcessTest, MistypedFolderIsNotMade) {
  EXPECT_EQ(backup(), 1);
  EXPECT_TRUE(said("there is no data folder " + data_)) << output_;
  EXPECT_FALSE(std::filesystem::exists(data_));
}

}  // namespace
}  // namespace vlk::relay
