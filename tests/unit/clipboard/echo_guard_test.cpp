// The times at which the echo guard suppresses the sending of clipboard content.
#include "clipboard/echo_guard.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

TEST(EchoGuard, IsActiveForHalfASecond) {
  const std::uint32_t until = EchoGuardUntil(1000);
  EXPECT_EQ(until, 1500u);
  EXPECT_TRUE(EchoGuardHolds(1000, until));
  EXPECT_TRUE(EchoGuardHolds(1100, until));
  EXPECT_TRUE(EchoGuardHolds(1499, until));
  EXPECT_FALSE(EchoGuardHolds(1500, until));
  EXPECT_FALSE(EchoGuardHolds(1600, until));
}

TEST(EchoGuard, IsInactiveBeforeContentWasApplied) {
  EXPECT_FALSE(EchoGuardHolds(0, 0));
  EXPECT_FALSE(EchoGuardHolds(0xFFFFFFFF, 0));
}

TEST(EchoGuard, EndsAtOnceIfTheTickCountOfItsEndWrapsAround) {
  const std::uint32_t until = EchoGuardUntil(0xFFFFFFFF - 99);
  EXPECT_EQ(until, 400u);
  EXPECT_FALSE(EchoGuardHolds(0xFFFFFFFF, until)) << "the change is sent";
  EXPECT_TRUE(EchoGuardHolds(0, until))
      << "after the tick count has wrapped around, the guard is active again";
  EXPECT_EQ(EchoGuardUntil(0xFFFFFFFF - 499), 0u);
  EXPECT_EQ(EchoGuardUntil(0xFFFFFFFF - 500), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace vlk::agent
