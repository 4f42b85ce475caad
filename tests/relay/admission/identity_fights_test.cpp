// Which replacements of connections show that two computers use one identity.
#include "relay/admission/identity_fights.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Replaces the identity's connection `count` times, each after `life`, and returns how often a fight was
// found.
int fights_found(IdentityFights& fights, std::size_t count, Clock::duration life) {
  int found = 0;
  Clock::time_point now{};
  for (std::size_t i = 0; i < count; ++i) {
    now += life;
    if (fights.replaced("id", life, now)) ++found;
  }
  return found;
}

TEST(IdentityFights, TwoComputersThatReplaceEachOtherAreFoundAtTheSixthReplacement) {
  IdentityFights fights;
  EXPECT_EQ(fights_found(fights, IdentityFights::kReplacements - 1, milliseconds(600)), 0);
  EXPECT_TRUE(fights.replaced("id", milliseconds(600), Clock::time_point{} + seconds(4)));
}

TEST(IdentityFights, FightOnASlowLineIsFound) {
  IdentityFights fights;
  EXPECT_EQ(fights_found(fights, IdentityFights::kReplacements, milliseconds(9'900)), 1);
}

TEST(IdentityFights, ComputerThatLosesItsLineEveryTenSecondsIsNotAFight) {
  IdentityFights fights;
  EXPECT_EQ(fights_found(fights, 100, IdentityFights::kShortLife), 0);
}

TEST(IdentityFights, LongLifeOfAConnectionEndsTheCount) {
  IdentityFights fights;
  EXPECT_EQ(fights_found(fights, IdentityFights::kReplacements - 1, milliseconds(500)), 0);
  EXPECT_FALSE(fights.replaced("id", seconds(30), Clock::time_point{} + seconds(33)));
  EXPECT_FALSE(fights.replaced("id", milliseconds(500), Clock::time_point{} + seconds(34)));
}

TEST(IdentityFights, ReplacementsOlderThanAMinuteDoNotCount) {
  IdentityFights fights;
  Clock::time_point now{};
  for (std::size_t i = 0; i < 20; ++i) {
    now += seconds(13);
    EXPECT_FALSE(fights.replaced("id", milliseconds(500), now));
  }
}

TEST(IdentityFights, EachIdentityIsCountedAlone) {
  IdentityFights fights;
  const Clock::time_point now{};
  for (std::size_t i = 0; i < IdentityFights::kReplacements - 1; ++i) {
    EXPECT_FALSE(fights.replaced("a", milliseconds(500), now));
    EXPECT_FALSE(fights.replaced("b", milliseconds(500), now));
  }
  EXPECT_TRUE(fights.replaced("a", milliseconds(500), now));
  EXPECT_FALSE(fights.replaced("a", milliseconds(500), now)) << "the count begins again after a fight";
}

TEST(IdentityFights, IdentityThatWasReplacedLongestAgoIsForgottenWhenTooManyAreObserved) {
  IdentityFights fights;
  Clock::time_point now{};
  for (std::size_t i = 0; i < IdentityFights::kReplacements - 1; ++i)
    EXPECT_FALSE(fights.replaced("first", milliseconds(500), now));
  now += milliseconds(1);
  for (std::size_t i = 0; i < IdentityFights::kIdentities; ++i)
    EXPECT_FALSE(fights.replaced(std::to_string(i), milliseconds(500), now));
  EXPECT_FALSE(fights.replaced("first", milliseconds(500), now));
}

}  // namespace
}  // namespace vlk::relay
