// The bounds of one turn of a stream.
#include "relay/net/tls/steps.h"

#include <functional>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

// Runs steps that each keep the next one, and returns how many the turn took.
int steps_of_a_turn(Steps& steps, std::size_t bytes) {
  int count = 0;
  std::function<void()> step = [&] {
    ++count;
    std::function<void()> next = step;
    (void)steps.keep(next, bytes);
  };
  steps.run(step);
  return count;
}

TEST(StepsTest, TurnEndsAfterSoManyStepsOrBytes) {
  Steps steps;
  EXPECT_EQ(steps_of_a_turn(steps, 1), 1 + static_cast<int>(Steps::kMostSteps));
  EXPECT_EQ(steps_of_a_turn(steps, 16 * 1024), 1 + 4);
  EXPECT_EQ(steps_of_a_turn(steps, 1 << 20), 1 + 1);
  EXPECT_EQ(steps_of_a_turn(steps, 1), 1 + static_cast<int>(Steps::kMostSteps));
}

TEST(StepsTest, NoStepIsKeptOutsideATurnOrBesideAnother) {
  Steps steps;
  std::function<void()> first = [] {}, second = [] {};
  EXPECT_FALSE(steps.keep(first, 1));
  steps.run([&] {
    EXPECT_TRUE(steps.keep(first, 1));
    EXPECT_FALSE(steps.keep(second, 1));
  });
  EXPECT_TRUE(second);
}

TEST(StepsTest, StepRunsAfterTheOneBeforeHasReturned) {
  Steps steps;
  bool inside = false;
  int count = 0;
  steps.run([&] {
    inside = true;
    auto next = [&] {
      EXPECT_FALSE(inside);
      ++count;
    };
    EXPECT_TRUE(steps.keep(next, 1));
    EXPECT_EQ(count, 0);
    inside = false;
  });
  EXPECT_EQ(count, 1);
}

TEST(StepsTest, ExceptionOfAStepDropsTheOneThatIsKept) {
  Steps steps;
  const auto owned = std::make_shared<int>();
  int count = 0;
  EXPECT_THROW(steps.run([&] {
    auto next = [&count, owned] { ++count; };
    EXPECT_TRUE(steps.keep(next, 1));
    throw std::runtime_error("failed");
  }),
               std::runtime_error);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(owned.use_count(), 1);
  EXPECT_EQ(steps_of_a_turn(steps, 1), 1 + static_cast<int>(Steps::kMostSteps));
}

}  // namespace
}  // namespace vlk::relay
