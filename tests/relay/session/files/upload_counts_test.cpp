// How many bytes of a session's uploads have passed, and when its browser is told.
#include "relay/session/files/upload_counts.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

constexpr std::uint32_t kSession = 7;
constexpr std::uint64_t kStep = UploadCounts::kReport;

TEST(UploadCountsTest, BrowserIsToldInStepsAndWhenNothingIsQueued) {
  UploadCounts counts;
  EXPECT_EQ(counts.passed(kSession, 1), std::nullopt) << "nothing was sent";
  counts.took(kSession, 2 * kStep + 10);
  EXPECT_EQ(counts.passed(kSession, kStep - 1), std::nullopt);
  EXPECT_EQ(counts.passed(kSession, 1), kStep);
  EXPECT_EQ(counts.passed(kSession, kStep), 2 * kStep);
  EXPECT_EQ(counts.passed(kSession, 5), std::nullopt);
  EXPECT_EQ(counts.passed(kSession, 5), 2 * kStep + 10);
}

TEST(UploadCountsTest, BrowserThatTakesTheSessionOverCountsOnFromBothTotals) {
  UploadCounts counts;
  counts.took(kSession, 3 * kStep);
  EXPECT_EQ(counts.passed(kSession, kStep + 5), kStep + 5);
  (void)counts.passed(kSession, 20);
  const auto totals = counts.hand_over(kSession);
  EXPECT_EQ(totals.taken, 3 * kStep);
  EXPECT_EQ(totals.passed, kStep + 25);
  EXPECT_EQ(counts.passed(kSession, kStep - 1), std::nullopt) << "the browser knows the rest";
  EXPECT_EQ(counts.passed(kSession, 1), 2 * kStep + 25);
  counts.end(kSession);
  EXPECT_EQ(counts.taken(kSession), 0u);
}

}  // namespace
}  // namespace vlk::relay
