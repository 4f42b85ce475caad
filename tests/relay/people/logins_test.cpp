// When log-ins end: by their absolute time, without use, and by somebody's decision.
#include "relay/people/logins.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

constexpr std::int64_t kStart = 1000;
const Bytes kHash = {1};

class LoginsTest : public testing::Test {
 protected:
  LoginsTest() {
    logins_.on_end([this](const Bytes&, const std::string& reason) { ended_.push_back(reason); });
    logins_.on_warning([this](const Bytes&, std::int64_t seconds) {
      if (browser_) warned_.push_back(seconds);
      return browser_;
    });
  }
  void add(std::int64_t expires_at, std::int64_t idle_limit, const Bytes& hash = kHash, PersonId person = 1) {
    LoginRow row;
    row.id = hash.front();
    row.token_hash = hash;
    row.person = person;
    row.created_at = row.last_used = kStart;
    row.expires_at = expires_at;
    row.idle_limit = idle_limit;
    row.address = "10.0.0.1";
    logins_.add(row);
  }

  Logins logins_;
  bool browser_ = true;  // the log-in has a connected browser
  std::vector<std::int64_t> warned_;
  std::vector<std::string> ended_;
};

TEST_F(LoginsTest, EndsAtItsAbsoluteTimeHoweverItIsUsed) {
  add(kStart + 100, 0);
  logins_.use(kHash, kStart + 99);
  EXPECT_TRUE(logins_.find(kHash, kStart + 99));
  EXPECT_FALSE(logins_.find(kHash, kStart + 100));
}

TEST_F(LoginsTest, EndsWithoutUseAndLastsWithUse) {
  add(kStart + 10000, 300);
  EXPECT_FALSE(logins_.find(kHash, kStart + 300));
  logins_.use(kHash, kStart + 299);
  EXPECT_TRUE(logins_.find(kHash, kStart + 598));
  EXPECT_FALSE(logins_.find(kHash, kStart + 599));
}

TEST_F(LoginsTest, BrowserIsWarnedAMinuteBeforeTheEndOnce) {
  add(kStart + 300, 0);
  for (std::int64_t now = kStart; now < kStart + 300; ++now)
    logins_.tick(now);
  EXPECT_EQ(warned_, std::vector<std::int64_t>{60});
  EXPECT_TRUE(ended_.empty());
  logins_.tick(kStart + 300);
  EXPECT_EQ(ended_, std::vector<std::string>{"the log-in ended"});
}

TEST_F(LoginsTest, BrowserHasAMinuteEvenIfItConnectsShortlyBeforeTheEnd) {
  add(kStart + 300, 0);
  browser_ = false;
  logins_.tick(kStart + 290);
  browser_ = true;
  logins_.tick(kStart + 295);
  EXPECT_EQ(warned_, std::vector<std::int64_t>{60});
  logins_.tick(kStart + 354);
  EXPECT_TRUE(ended_.empty());
  EXPECT_TRUE(logins_.find(kHash, kStart + 354));
  logins_.tick(kStart + 355);
  EXPECT_EQ(ended_.size(), 1u);
}

TEST_F(LoginsTest, UseAfterTheWarningGoesOnAndTheNextWarningComesInTime) {
  add(kStart + 10000, 300);
  logins_.tick(kStart + 240);
  logins_.use(kHash, kStart + 290);
  for (std::int64_t now = kStart + 290; now < kStart + 590; ++now)
    logins_.tick(now);
  EXPECT_EQ(warned_.size(), 2u);
  EXPECT_TRUE(ended_.empty());
}

TEST_F(LoginsTest, StepUpMovesTheAbsoluteEndAndCountsForSomeMinutes) {
  add(kStart + 300, 0);
  logins_.tick(kStart + 250);
  EXPECT_FALSE(logins_.stepped_up(kHash, kStart + 250));
  logins_.step_up(kHash, kStart + 260, kStart + 5000);
  logins_.tick(kStart + 400);
  EXPECT_TRUE(ended_.empty());
  EXPECT_TRUE(logins_.stepped_up(kHash, kStart + 260 + kStepUpSeconds - 1));
  EXPECT_FALSE(logins_.stepped_up(kHash, kStart + 260 + kStepUpSeconds));
}

TEST_F(LoginsTest, AllLogInsOfAPersonEndButTheOneToKeep) {
  add(kStart + 300, 0);
  add(kStart + 300, 0, {2});
  add(kStart + 300, 0, {3}, 2);
  logins_.end_all_of(1, {2}, "the password was changed");
  EXPECT_EQ(ended_, std::vector<std::string>{"the password was changed"});
  EXPECT_TRUE(logins_.find({2}, kStart) && logins_.find({3}, kStart));
}

TEST_F(LoginsTest, ReadingTheStoredLogInsAgainEndsThoseThatAreGone) {
  add(kStart + 300, 0);
  add(kStart + 300, 0, {2});
  logins_.step_up({2}, kStart, kStart + 300);
  LoginRow kept = logins_.find({2}, kStart)->row;
  logins_.use({2}, kStart + 5);
  logins_.replace({kept});
  EXPECT_EQ(ended_.size(), 1u);
  EXPECT_TRUE(logins_.stepped_up({2}, kStart + 1)) << "what is only in memory stays";
  EXPECT_EQ(logins_.find({2}, kStart)->row.last_used, kStart + 5);
}

TEST_F(LoginsTest, UsedLogInsAreStoredOnce) {
  add(kStart + 300, 0);
  EXPECT_TRUE(logins_.take_used().empty());
  logins_.use(kHash, kStart + 7);
  EXPECT_EQ(logins_.take_used(), (std::map<std::int64_t, std::int64_t>{{1, kStart + 7}}));
  EXPECT_TRUE(logins_.take_used().empty());
}

}  // namespace
}  // namespace vlk::relay
