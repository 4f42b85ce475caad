// When a machine may be asked whether a session may begin.
#include "relay/session/table/questions.h"

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;
using Ruling = Questions::Ruling;

class QuestionsTest : public testing::Test {
 protected:
  Clock::time_point now_ = Clock::now();
  Questions questions_{{.lost = 120s, .refused = 3, .window = 60s, .counted_machines = 100}};
};

TEST_F(QuestionsTest, MachineIsNotAskedAgainBeforeItHasAnswered) {
  EXPECT_EQ(questions_.may_ask("a", now_), Ruling::Ask);
  questions_.asked("a", 7);
  EXPECT_EQ(questions_.may_ask("a", now_), Ruling::BoxStands);
  EXPECT_EQ(questions_.may_ask("b", now_), Ruling::Ask);
  EXPECT_FALSE(questions_.stands("a")) << "the session still waits";
  questions_.unanswered("a", 7, now_);
  EXPECT_EQ(questions_.may_ask("a", now_), Ruling::BoxStands);
  EXPECT_TRUE(questions_.stands("a"));
  questions_.answered("a", 6, false, now_);
  EXPECT_TRUE(questions_.stands("a")) << "this answered an older question";
  questions_.answered("a", 7, false, now_);
  EXPECT_FALSE(questions_.stands("a"));
  EXPECT_EQ(questions_.may_ask("a", now_), Ruling::Ask);
}

TEST_F(QuestionsTest, BoxWithoutAnAnswerCountsAsGoneAfterAWhile) {
  questions_.asked("a", 7);
  EXPECT_TRUE(questions_.take_lost(now_ + 1h).empty()) << "the session still waits";
  questions_.unanswered("a", 7, now_);
  EXPECT_TRUE(questions_.take_lost(now_ + 119s).empty());
  EXPECT_EQ(questions_.take_lost(now_ + 120s), std::vector<std::string>{"a"});
  EXPECT_EQ(questions_.may_ask("a", now_ + 120s), Ruling::Ask);
}

TEST_F(QuestionsTest, ThreeQuestionsWithoutASessionWithinAMinuteAreTheLast) {
  for (std::uint32_t session = 1; session <= 3; ++session) {
    ASSERT_EQ(questions_.may_ask("a", now_), Ruling::Ask) << session;
    questions_.asked("a", session);
    if (session == 2) questions_.unanswered("a", session, now_);
    questions_.answered("a", session, false, now_);
  }
  EXPECT_EQ(questions_.may_ask("a", now_), Ruling::TooOften);
  EXPECT_EQ(questions_.may_ask("b", now_), Ruling::Ask);
  EXPECT_EQ(questions_.may_ask("a", now_ + 61s), Ruling::Ask);
}

TEST_F(QuestionsTest, QuestionsThatLedToASessionDoNotCount) {
  for (std::uint32_t session = 1; session <= 10; ++session) {
    ASSERT_EQ(questions_.may_ask("a", now_), Ruling::Ask) << session;
    questions_.asked("a", session);
    questions_.answered("a", session, true, now_);
  }
}

class AskingTest : public PartsTest {
 protected:
  // The code of the refusal of a session; empty if it is asked for.
  std::string refusal() {
    (void)sent(*browser_->channel);
    parts_->sessions.open(browser_, "a");
    const Json answer = Json::parse(sent_but_lists(*browser_->channel).front());
    return answer["type"] == "error" ? answer["code"].get<std::string>() : "";
  }
  // Whether the list says that a question may stand on the machine's screen.
  bool listed_as_asked() { return Json::parse(parts_->machines.entry("a"))["asked"]; }

  Agent agent_ = log_in("a");
  Console browser_ = browse("ada");
};

TEST_F(AskingTest, BrowserIsToldHowLongTheMachinesUserHas) {
  limits_.consent = 30s;
  parts_->sessions.open(browser_, "a");
  const Json waiting = Json::parse(sent_but_lists(*browser_->channel).front());
  EXPECT_EQ(waiting["state"], "waiting");
  EXPECT_EQ(waiting["seconds"], 30);
}

TEST_F(AskingTest, WithdrawnQuestionKeepsTheMachineFromBeingAskedUntilItsAnswerArrives) {
  const std::uint32_t session = ask(browser_, agent_);
  EXPECT_FALSE(listed_as_asked());
  parts_->sessions.close(*browser_, session);
  EXPECT_TRUE(listed_as_asked());
  EXPECT_EQ(refusal(), "asked-already");
  parts_->sessions.reject(*agent_, session);
  EXPECT_FALSE(listed_as_asked());
  EXPECT_EQ(refusal(), "");
}

TEST_F(AskingTest, QuestionThatWasLostWithItsConnectionIsAnsweredOnTheNext) {
  const std::uint32_t session = ask(browser_, agent_);
  parts_->sessions.end_all_of(*agent_, "agent-gone");
  agent_ = log_in("a");
  EXPECT_EQ(refusal(), "asked-already");
  parts_->sessions.accept(*agent_, session);
  EXPECT_EQ(refusal(), "") << "the late answer opened no session";
}

TEST_F(AskingTest, LostQuestionIsTakenFromTheListAfterAWhile) {
  const std::uint32_t session = ask(browser_, agent_);
  parts_->sessions.close(*browser_, session);
  parts_->sessions.tick(Clock::now() + limits_.lost_question);
  EXPECT_FALSE(listed_as_asked());
  EXPECT_EQ(refusal(), "");
}

TEST_F(AskingTest, MachineThatDeclinedThreeTimesIsNotAskedAtOnceAgain) {
  for (int i = 0; i < 3; ++i)
    parts_->sessions.reject(*agent_, ask(browser_, agent_));
  EXPECT_EQ(refusal(), "asked-too-often");
}

TEST_F(AskingTest, QuestionOfAnEarlierRunKeepsTheMachineFromBeingAsked) {
  parts_->sessions.restore_questions({{"a", 77}});
  EXPECT_EQ(Json::parse(parts_->machines.entry("a"))["asked"], true);
  parts_->sessions.open(browser_, "a");
  EXPECT_EQ(Json::parse(sent_but_lists(*browser_->channel).at(0))["code"], "asked-already");
  parts_->sessions.reject(*agent_, 77);
  EXPECT_NE(ask(browser_, agent_), 0u);
}

}  // namespace
}  // namespace vlk::relay
