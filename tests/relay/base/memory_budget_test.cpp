// The common memory limit of several owners.
#include "relay/base/memory/memory_budget.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

TEST(MemoryBudget, ClaimSucceedsWhileEnoughIsLeftAndReturnsItsShareAtItsEnd) {
  MemoryBudget budget(10);
  MemoryBudget::Claim first = budget.claim(6);
  EXPECT_TRUE(first);
  EXPECT_FALSE(budget.claim(5));
  EXPECT_TRUE(budget.claim(4));
  EXPECT_EQ(budget.used(), 6u) << "the other claims have ended";
  first = {};
  EXPECT_EQ(budget.used(), 0u);
  EXPECT_FALSE(budget.claim(SIZE_MAX));
}

TEST(MemoryBudget, MovedClaimCountsOnce) {
  MemoryBudget budget(10);
  MemoryBudget::Claim first = budget.claim(6);
  MemoryBudget::Claim second = std::move(first);
  EXPECT_EQ(budget.used(), 6u);
  second = budget.claim(3);
  EXPECT_EQ(budget.used(), 3u);
}

TEST(MemoryBudget, ClaimMayOutliveItsBudget) {
  MemoryBudget::Claim claim;
  {
    MemoryBudget budget(10);
    claim = budget.claim(6);
  }
  EXPECT_TRUE(claim);
}

}  // namespace
}  // namespace vlk::relay
