// The supervising loop on a scripted machine: each test sets the result of every wait and compares all
// actions of the loop. AddressSanitizer reports a handle that is not closed exactly once.
#include "system/supervisor.h"

#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fakes/fakes.h"

namespace vlk::agent {
namespace {

using Lines = std::vector<std::string>;
using vantelink_fakes::script;

class Supervisor : public testing::Test {
 protected:
  void SetUp() override {
    vantelink_fakes::reset();
    script().console_session = [this] { return session_; };
    script().launch = [this] { return fails_ ? "" : 'c' + std::to_string(++launched_); };
    script().wait = [this] {
      if (waits_.empty()) return WaitResult::Stop;
      const std::function<WaitResult()> next = waits_.front();
      waits_.pop_front();
      return next();
    };
  }

  Lines run() {
    StopEvent stop{"stop"};
    supervise(stop);
    return vantelink_fakes::journal();
  }
  void then(WaitResult wake) {
    waits_.push_back([wake] { return wake; });
  }
  void then_switch(std::uint32_t session) {
    waits_.push_back([this, session] {
      session_ = session;
      return WaitResult::Neither;
    });
  }

  std::uint32_t session_ = 1;
  bool fails_ = false;
  int launched_ = 0;
  std::deque<std::function<WaitResult()>> waits_;
};

TEST_F(Supervisor, StartsOneAgentAndEndsTheAgentWhenTheSupervisorIsStopped) {
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "terminate c1", "close c1"}));
}

TEST_F(Supervisor, KeepsARunningAgentAtEachPoll) {
  then(WaitResult::Neither);
  then(WaitResult::Neither);
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "wait stop or c1 5000", "wait stop or c1 5000",
                          "terminate c1", "close c1"}));
}

TEST_F(Supervisor, ReplacesEndedAgentsAtOnceAnyNumberOfTimes) {
  for (int i = 0; i < 1000; ++i)
    then(WaitResult::ChildEnded);
  const Lines lines = run();
  EXPECT_EQ(launched_, 1001);
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 5),
            (Lines{"launch c1", "wait stop or c1 5000", "close c1", "launch c2", "wait stop or c2 5000"}));
  EXPECT_EQ(vantelink_fakes::count("terminate c1"), 0u) << "the process has ended by itself";
}

TEST_F(Supervisor, RestartsTheAgentInANewConsoleSession) {
  then_switch(2);
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "terminate c1", "close c1", "launch c2",
                          "wait stop or c2 5000", "terminate c2", "close c2"}));
}

TEST_F(Supervisor, RetriesToStartTheAgentWhileNobodyIsLoggedOn) {
  fails_ = true;
  then(WaitResult::Neither);
  then(WaitResult::Neither);
  EXPECT_EQ(run(), (Lines{"launch failed", "wait stop 5000", "launch failed", "wait stop 5000",
                          "launch failed", "wait stop 5000"}));
}

TEST_F(Supervisor, StartsTheAgentWhenAUserLogsOnLater) {
  fails_ = true;
  waits_.push_back([this] {
    fails_ = false;
    return WaitResult::Neither;
  });
  EXPECT_EQ(run(), (Lines{"launch failed", "wait stop 5000", "launch c1", "wait stop or c1 5000",
                          "terminate c1", "close c1"}));
}

TEST_F(Supervisor, SwitchToASessionWithoutAUserEndsTheAgentAndItsStartIsRetried) {
  waits_.push_back([this] {
    session_ = 2;
    fails_ = true;
    return WaitResult::Neither;
  });
  then(WaitResult::Neither);
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "terminate c1", "close c1", "launch failed",
                          "wait stop 5000", "launch failed", "wait stop 5000"}));
}

TEST_F(Supervisor, MissingConsoleSessionIsTreatedLikeAnyOtherSession) {
  session_ = kNoSession;
  then_switch(1);
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "terminate c1", "close c1", "launch c2",
                          "wait stop or c2 5000", "terminate c2", "close c2"}));
}

TEST_F(Supervisor, HandleOfAnAgentThatEndsDuringASessionSwitchIsClosedOnce) {
  waits_.push_back([this] {
    session_ = 2;
    return WaitResult::ChildEnded;
  });
  EXPECT_EQ(run(), (Lines{"launch c1", "wait stop or c1 5000", "close c1", "launch c2",
                          "wait stop or c2 5000", "terminate c2", "close c2"}));
}

}  // namespace
}  // namespace vlk::agent
