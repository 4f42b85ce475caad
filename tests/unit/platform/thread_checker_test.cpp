// ThreadChecker, which debug builds use to find an object on the wrong thread.
#include "platform/threads/thread_checker.h"

#include <thread>

#include <gtest/gtest.h>

namespace vlk {
namespace {

TEST(ThreadChecker, AllowsTheThreadThatCreatedIt) {
  const ThreadChecker checker;
  checker.check();
}

TEST(ThreadChecker, AllowsTheThreadThatReboundIt) {
  ThreadChecker checker;
  std::thread([&] {
    checker.rebind();
    checker.check();
  }).join();
}

#ifndef NDEBUG
TEST(ThreadCheckerDeathTest, EndsTheProgramOnAnotherThread) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto check_elsewhere = [] {
    const ThreadChecker checker;
    std::thread([&] { checker.check(); }).join();
  };
  EXPECT_DEATH(check_elsewhere(), "used on another thread");
}
#endif

}  // namespace
}  // namespace vlk
