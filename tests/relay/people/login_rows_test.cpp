// The rows of the audit trail about log-ins that fail, are slowed, are locked out or end.
#include <algorithm>

#include "relay/base/secrets.h"
#include "relay/people/api_fixture.h"

namespace vlk::relay {
namespace {

class LoginRowsTest : public ApiTest {
 protected:
  void fail(std::size_t times, const std::string& source = "10.0.0.9") {
    for (std::size_t i = 0; i < times; ++i)
      (void)log_in_with("ada", "wrong password", source);
  }
  // The rows that begin with `code`.
  Lines rows(const std::string& code) {
    Lines lines = audited();
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(code); });
    return lines;
  }
  // Gives the person's one log-in other times.
  void change_login(const std::string& name, std::int64_t expires_at, std::int64_t idle_limit) {
    for (const Login* login : parts_->logins.all()) {
      LoginRow row = login->row;
      if (parts_->people.person(row.person)->name != name) continue;
      row.last_used = wall_seconds() - 100;
      row.expires_at = expires_at;
      row.idle_limit = idle_limit;
      parts_->logins.update(row);
      return;
    }
  }
  std::size_t stored_logins() {
    settle();
    Database database(file_);
    return load_logins(database).size();
  }

  const PersonId ada_ = add("ada", Role::Representative);
};

TEST_F(LoginRowsTest, FailureAfterWhichAnAddressIsRefusedHasARow) {
  fail(limits_.failures_per_name - 1);
  EXPECT_TRUE(rows("login.locked-out").empty());
  fail(3);
  EXPECT_EQ(rows("login.locked-out"), (Lines{R"(login.locked-out {"step":"password"})"}));
  EXPECT_EQ(rows("login.failed").size(), limits_.failures_per_name);
}

TEST_F(LoginRowsTest, RightPasswordAsTheLastAttemptLocksNobodyOut) {
  fail(limits_.failures_per_name - 1);
  EXPECT_EQ(log_in_with("ada", kGoodPassword).status, 200u);
  EXPECT_TRUE(rows("login.locked-out").empty());
}

TEST_F(LoginRowsTest, AccountThatIsSlowedHasARow) {
  for (std::size_t i = 0; i <= limits_.failures_per_account; ++i)
    fail(1, "10.0.1." + std::to_string(i));
  EXPECT_EQ(rows("login.slowed"), (Lines{R"(login.slowed {"step":"password"})"}));
  EXPECT_TRUE(rows("login.locked-out").empty());
}

TEST_F(LoginRowsTest, LogInThatExpiredOrWasIdleHasOneRow) {
  (void)log_in_as("ada");
  change_login("ada", wall_seconds() - 1, 0);
  parts_->watchdog.tick(Clock::now());
  parts_->watchdog.tick(Clock::now());
  EXPECT_EQ(rows("login.ended"), (Lines{R"(login.ended {"reason":"expired","person":"ada"})"}));
  (void)log_in_as("ada");
  change_login("ada", wall_seconds() + 1000, 10);
  parts_->watchdog.tick(Clock::now());
  EXPECT_EQ(rows("login.ended").back(), R"(login.ended {"reason":"idle","person":"ada"})");
  EXPECT_EQ(stored_logins(), 0u);
}

TEST_F(LoginRowsTest, LogInThatExpiredWhileTheRelayWasStoppedHasARow) {
  LoginRow row;
  row.token_hash = hash_secret("old");
  row.person = ada_;
  row.created_at = row.last_used = 1000;
  row.expires_at = 2000;
  database_.run_and_wait([&](Store& store) { (void)add_login(store.database(), row); });
  (void)log_in_with("ada", kGoodPassword);
  restart();
  parts_->watchdog.tick(Clock::now());
  EXPECT_EQ(rows("login.ended"), (Lines{R"(login.ended {"reason":"expired","person":"ada"})"}));
}

TEST_F(LoginRowsTest, EndByThePersonAndByAnAdministratorAreToldApart) {
  const std::string root = log_in_as("root");
  const std::string own = log_in_as("ada");
  (void)call("POST", "/api/logout", {}, own);
  EXPECT_EQ(rows("login.ended").back(), R"(login.ended {"reason":"log-out"})");
  const auto id_of_ada = [&] {
    for (const Login* login : parts_->logins.all()) {
      if (login->row.person == ada_) return std::to_string(login->row.id);
    }
    return std::string("none");
  };
  (void)log_in_as("ada");
  EXPECT_EQ(call("DELETE", "/api/logins/" + id_of_ada(), {}, root).status, 200u);
  const std::string ended = R"(login.ended {"reason":"administrator","person":"ada"})";
  EXPECT_EQ(rows("login.ended").back(), ended);
  const std::string second = log_in_as("ada");
  EXPECT_EQ(call("DELETE", "/api/logins/" + id_of_ada(), {}, second).status, 200u);
  EXPECT_EQ(rows("login.ended").back(), R"(login.ended {"reason":"log-out"})");
  EXPECT_EQ(call("POST", "/api/people/" + std::to_string(ada_) + "/end-logins", {}, root).status, 200u);
  EXPECT_EQ(rows("login.ended").back(), ended);
}

}  // namespace
}  // namespace vlk::relay
