// The order in which passwords are verified, and the bounds of the queue.
#include "relay/http/api/password_work.h"

#include <vector>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "relay/people/api_fixture.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;

class PasswordWorkTest : public testing::Test {
 protected:
  void ask(const std::string& name, PasswordWork::Asker asker) {
    asio::co_spawn(
        io_,
        [this, name, asker]() -> asio::awaitable<void> {
          const bool done = co_await work_->run(asker, [] {});
          (done ? done_ : refused_).push_back(name);
        },
        [](const std::exception_ptr& error) {
          if (error) std::rethrow_exception(error);
        });
  }
  static PasswordWork::Asker from(const std::string& source, std::size_t failures = 0, bool known = false) {
    return {"ada", source, known, false, failures};
  }

  asio::io_context io_;
  std::unique_ptr<PasswordWork> work_ = std::make_unique<PasswordWork>();
  std::vector<std::string> done_;
  std::vector<std::string> refused_;
};

TEST_F(PasswordWorkTest, KnownPeopleThenAddressesWithFewFailuresThenTheNewestComeFirst) {
  ask("first", from("1"));
  ask("failed twice", from("2", 2));
  ask("failed once", from("3", 1));
  ask("older", from("4"));
  ask("newer", from("5"));
  ask("known", from("6", 5, true));
  io_.run();
  EXPECT_EQ(done_,
            (std::vector<std::string>{"first", "known", "newer", "older", "failed once", "failed twice"}));
}

TEST_F(PasswordWorkTest, FullQueueRefusesWhoComesLast) {
  work_ = std::make_unique<PasswordWork>(PasswordWork::Bounds{.waiting = 2});
  ask("runs", from("1"));
  ask("failed", from("2", 3));
  ask("waits", from("3"));
  ask("failed more", from("4", 4));
  ask("known", from("5", 0, true));
  io_.run();
  EXPECT_EQ(refused_, (std::vector<std::string>{"failed more", "failed"}));
  EXPECT_EQ(done_, (std::vector<std::string>{"runs", "known", "waits"}));
}

TEST_F(PasswordWorkTest, OneAddressHasAShareOfTheQueue) {
  work_ = std::make_unique<PasswordWork>(PasswordWork::Bounds{.of_one_source = 2});
  for (int i = 0; i < 5; ++i)
    ask(std::to_string(i), from("1"));
  ask("other", from("2"));
  io_.run();
  EXPECT_EQ(refused_, (std::vector<std::string>{"3", "4"}));
  EXPECT_EQ(done_.size(), 4u);
}

TEST_F(PasswordWorkTest, AttackedAccountIsSlowedButKnownPeopleAreNot) {
  PasswordWork::Asker slowed = from("1");
  slowed.slowed = true;
  const auto begin = Clock::now();
  for (const char* name : {"a", "b", "c"}) {
    slowed.source = name;
    ask(name, slowed);
  }
  PasswordWork::Asker known = slowed;
  known.known = true;
  ask("known", known);
  io_.run();
  EXPECT_EQ(done_, (std::vector<std::string>{"a", "known", "c", "b"}));
  EXPECT_GE(Clock::now() - begin, 2 * PasswordWork::Bounds{}.pace);
}

// Attackers of fifty addresses send a wrong password each, again and again.
class AttackTest : public ApiTest {
 protected:
  asio::awaitable<void> attack(std::string source) {
    while (!stop_) {
      const Json body = {{"name", "root"}, {"password", "a wrong password"}};
      (void)co_await answer_to(request_for("POST", "/api/login", body, {}), source);
      ++attempts_;
    }
  }
  bool stop_ = false;
  int attempts_ = 0;
};

TEST_F(AttackTest, RightPersonDoesNotWaitForTheAttemptsOfFiftyAddresses) {
  limits_.failures_per_name = 1'000'000;
  limits_.failures_per_address = 1'000'000;
  restart_api();
  for (int i = 0; i < 50; ++i)
    asio::co_spawn(io_, attack("192.0.2." + std::to_string(i)), [](const std::exception_ptr&) {});
  run_until([&] { return attempts_ >= 3; });
  const int before = attempts_;
  const Answer answer = log_in_with("root", kGoodPassword, "198.51.100.1");
  EXPECT_EQ(answer.status, 200u) << answer.body;
  // About fifty attempts wait. The one that runs is not interrupted, and an answer may be on its way.
  EXPECT_LE(attempts_ - before, 3);
  stop_ = true;
  io_.stop();
}

}  // namespace
}  // namespace vlk::relay
