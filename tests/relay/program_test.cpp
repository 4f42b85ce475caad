// The relay's program, started as by an operator: the first start, representatives' passwords, the version.
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "relay/base/version.h"
#include "relay/browser.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

using vantelink_test::RelayProcess;

unsigned log_in(const RelayProcess& relay, const std::string& name, const std::string& password,
                std::string* cookie = nullptr) {
  const auto answer = Browser(static_cast<unsigned short>(relay.port()))
                          .request("POST", "/api/login", Json{{"name", name}, {"password", password}}.dump());
  if (cookie) *cookie = answer.cookie;
  return answer.status;
}

// The part of a line of `output` that follows `text`; empty if the output does not contain `text`.
std::string rest_after(const std::string& text, const std::string& output) {
  const std::size_t at = output.find(text);
  if (at == std::string::npos) return {};
  return output.substr(at + text.size(), output.find('\n', at) - at - text.size());
}

class ProgramTest : public testing::Test {
 protected:
  // Runs the program with one line of input until it exits. Stores its output in `output_` and returns its
  // exit code.
  int run(const std::string& arguments, const std::string& line) {
    folder_.write("input", line + '\n');
    const std::string folder = folder_.path();
    const std::string command = RelayProcess::program() + " --data " + data_ + ' ' + arguments + " < " +
                                folder + "/input > " + folder + "/output 2>&1";
    const int status = std::system(command.c_str());
    output_ = folder_.read("output");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  std::string output_;
};

constexpr char kFirst[] = "Log in to the console as \"admin\" with the password ";

TEST_F(ProgramTest, FirstStartAddsARepresentativeAndPrintsThePasswordOnce) {
  std::string password;
  {
    const RelayProcess relay(data_, {});
    password = rest_after(kFirst, relay.log());
    EXPECT_EQ(password.size(), 23u) << relay.log();
    EXPECT_EQ(log_in(relay, "admin", password), 200u);
  }
  const RelayProcess again(data_, {});
  EXPECT_EQ(again.logged("password"), 0) << again.log();
  EXPECT_EQ(log_in(again, "admin", password), 200u);
}

TEST_F(ProgramTest, SetPasswordOptionEndsTheRepresentativesLogInsAtARunningRelay) {
  const RelayProcess relay(data_, {});
  const std::string old_password = rest_after(kFirst, relay.log());
  std::string cookie;
  ASSERT_EQ(log_in(relay, "admin", old_password, &cookie), 200u);
  ASSERT_EQ(run("--set-password admin", "a new password"), 0) << output_;
  Browser browser(static_cast<unsigned short>(relay.port()));
  EXPECT_EQ(browser.request("GET", "/api/me", {}, cookie).status, 401u);
  EXPECT_EQ(log_in(relay, "admin", old_password), 401u);
  EXPECT_EQ(log_in(relay, "admin", "a new password"), 200u);
  EXPECT_EQ(run("--set-password nobody", "a new password"), 1);
}

TEST_F(ProgramTest, OnlyPasswordsOfAllowedLengthAreAccepted) {
  EXPECT_EQ(run("--add-user ada", "too short"), 1);
  EXPECT_EQ(output_, "vantelink-relay: a password needs at least 10 characters; nothing was changed\n");
  EXPECT_EQ(run("--add-user ada", std::string(1025, 'x')), 1);
  EXPECT_EQ(output_, "vantelink-relay: a password can have at most 1024 bytes; nothing was changed\n");
  const std::string longest(1024, 'x');
  EXPECT_EQ(run("--add-user ada", longest), 0) << output_;
  EXPECT_EQ(run("--add-user bjarni", ""), 0);
  const std::string made = rest_after("The password of \"bjarni\" is ", output_);
  const RelayProcess relay(data_, {});
  EXPECT_EQ(log_in(relay, "ada", longest), 200u);
  EXPECT_EQ(log_in(relay, "bjarni", made), 200u);
}

TEST_F(ProgramTest, VersionIsPrinted) {
  EXPECT_EQ(run("--version", ""), 0);
  EXPECT_EQ(output_, std::string("vantelink-relay ") + kRelayVersion + "\n");
  EXPECT_FALSE(std::filesystem::exists(data_)) << "no data folder is created";
}

}  // namespace
}  // namespace vlk::relay
