// The limit of file descriptors that the relay sets for its connections.
#include "relay/net/descriptors.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

class DescriptorsTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0); }
  void TearDown() override { ::setrlimit(RLIMIT_NOFILE, &before_); }
  static rlim_t limit() {
    rlimit now{};
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
    return now.rlim_cur;
  }
  void set(rlim_t limit) const {
    const rlimit changed{limit, before_.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &changed), 0);
  }

  rlimit before_{};
};

TEST_F(DescriptorsTest, LowLimitIsRaisedForConnectionsTheirSuccessorsAndFiles) {
  set(100);
  raise_descriptor_limit(80);
  EXPECT_EQ(limit(), 80u + 10 + 64);
}

TEST_F(DescriptorsTest, SufficientLimitStays) {
  set(200);
  raise_descriptor_limit(80);
  EXPECT_EQ(limit(), 200u);
}

}  // namespace
}  // namespace vlk::relay
