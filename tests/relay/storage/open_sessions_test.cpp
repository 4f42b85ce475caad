// The ends of the sessions that were open when the relay's process ended without a stop.
#include "relay/storage/machines/open_sessions.h"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "relay/storage/store.h"
#include "relay/storage/test_database.h"
#include "relay/storage/trail/chain.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

class OpenSessionsTest : public testing::Test {
 protected:
  void append(const TrailEntry& entry) { append_trail(store_.database(), std::span(&entry, 1)); }
  void start() { append(trail_entry<TrailKind::RelayStarted>({}, "1", relay_)); }
  void ask(std::uint32_t number) {
    append(trail_entry<TrailKind::SessionAsked>({"ada", "a", "10.0.0.2:2000", number}, "name", std::nullopt,
                                                relay_));
  }
  void end(std::uint32_t number) {
    append(trail_entry<TrailKind::SessionEnded>({"ada", "a", "10.0.0.2:2000", number}, "closed", 5));
  }

  std::vector<std::string> died() {
    Statement rows(store_.database(),
                   "SELECT session || ' ' || actor || ' ' || machine || ' ' || address FROM trail "
                   "WHERE fields = '{\"reason\":\"relay-died\"}' ORDER BY id");
    std::vector<std::string> result;
    while (rows.step())
      result.push_back(rows.text(0));
    return result;
  }

  vantelink_test::TempFolder folder_;
  std::optional<std::string> relay_;  // whose rows are appended
  Store store_{database_in(folder_.path())};
};

TEST_F(OpenSessionsTest, OnlySessionsWithoutAnEndGetARowAndOnlyOnce) {
  start();
  ask(1);
  ask(2);
  end(1);
  ask(3);
  const std::vector<std::string> expected = {"2 ada a 10.0.0.2:2000", "3 ada a 10.0.0.2:2000"};
  end_open_sessions(store_.database());
  EXPECT_EQ(died(), expected);
  start();
  end_open_sessions(store_.database());
  EXPECT_EQ(died(), expected);
}

TEST_F(OpenSessionsTest, QuestionWithoutAnAnswerOfTheMachineIsOpen) {
  const auto answer = [&](std::uint32_t number, const char* how) {
    append(trail_entry<TrailKind::SessionAnswered>({"ada", "a", "10.0.0.2:2000", number}, how));
  };
  start();
  for (const std::uint32_t number : {1u, 2u, 3u, 4u})
    ask(number);
  answer(1, "accepted");
  answer(2, "declined");
  answer(3, "none");
  end(3);
  start();
  ask(5);
  const auto numbers = [&](std::int64_t since) {
    std::vector<std::uint32_t> found;
    for (const OpenQuestion& question : open_questions(store_.database(), since)) {
      EXPECT_EQ(question.machine, "a");
      found.push_back(question.session);
    }
    return found;
  };
  EXPECT_EQ(numbers(0), (std::vector<std::uint32_t>{5, 4, 3}));
  EXPECT_TRUE(numbers(INT64_MAX).empty());
}

TEST_F(OpenSessionsTest, NewDatabaseHasNoOpenSession) {
  end_open_sessions(store_.database());
  EXPECT_TRUE(died().empty());
}

TEST_F(OpenSessionsTest, RelayEndsItsOwnSessionsOnly) {
  relay_ = "north";
  start();
  ask(1);
  relay_ = "south";
  start();
  ask(2);
  end_open_sessions(store_.database());
  EXPECT_TRUE(died().empty());
  end_open_sessions(store_.database(), "north");
  EXPECT_EQ(died(), std::vector<std::string>{"1 ada a 10.0.0.2:2000"});
}

}  // namespace
}  // namespace vlk::relay
