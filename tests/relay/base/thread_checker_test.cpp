// The check that a class is used by one thread only.
#include "relay/base/threads/thread_checker.h"

#include <thread>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

TEST(ThreadCheckerTest, FurtherChecksOnTheThreadOfTheFirstCheckSucceed) {
  const ThreadChecker checker;
  std::thread([&] {
    checker.check();
    checker.check();
  }).join();
}

#ifndef NDEBUG
TEST(ThreadCheckerDeathTest, CheckOnASecondThreadStopsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const ThreadChecker checker;
        checker.check();
        std::thread([&] { checker.check(); }).join();
      },
      "used on a second thread");
}
#endif

}  // namespace
}  // namespace vlk::relay
