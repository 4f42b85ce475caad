// The relay's program, started as by an operator: the first start, representatives' passwords, the version.
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "relay/base/version.h"
#include "relay/browser.h"
#include "relay/net/tls/pairs.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"
#include "support/waiting.h"

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

  // The one-time password of the first start.
  std::string first_password() {
    std::ifstream file(data_ + "/first-password");
    std::string line;
    std::getline(file, line);
    return line;
  }
  static std::string stage_of_log_in(const RelayProcess& relay, const std::string& name,
                                     const std::string& password) {
    return Browser(static_cast<unsigned short>(relay.port()))
        .request("POST", "/api/login", Json{{"name", name}, {"password", password}}.dump())
        .body.value("stage", "");
  }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  std::string output_;
};

TEST_F(ProgramTest, FirstStartWritesAOneTimePasswordToAPrivateFileAndHappensOnce) {
  std::string password;
  {
    const RelayProcess relay(data_, {});
    password = first_password();
    EXPECT_EQ(password.size(), 23u) << relay.log();
    EXPECT_EQ(relay.log().find(password), std::string::npos) << "logs are kept";
    const auto file = std::filesystem::path(data_) / "first-password";
    EXPECT_EQ(std::filesystem::status(file).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(stage_of_log_in(relay, "admin", password), "password");
  }
  const RelayProcess again(data_, {});
  EXPECT_EQ(again.logged("password"), 0) << again.log();
  EXPECT_EQ(log_in(again, "admin", password), 200u);
}

TEST_F(ProgramTest, FirstStartThatWasCutOffIsRepeatedWithAnotherPassword) {
  std::filesystem::create_directory(data_);
  std::filesystem::permissions(data_, std::filesystem::perms::owner_all);
  std::ofstream(std::filesystem::path(data_) / "first-password") << "of a start that was cut off\n";
  const RelayProcess relay(data_, {});
  EXPECT_EQ(stage_of_log_in(relay, "admin", first_password()), "password") << relay.log();
}

TEST_F(ProgramTest, SetUpIsNotReachedAgainWhenAllPeopleWereRemoved) {
  { const RelayProcess relay(data_, {}); }
  ASSERT_EQ(run("--remove-user admin", ""), 0) << output_;
  std::filesystem::remove(std::filesystem::path(data_) / "first-password");
  const RelayProcess relay(data_, {});
  EXPECT_EQ(relay.logged("First start"), 0) << relay.log();
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(data_) / "first-password"));
}

TEST_F(ProgramTest, AddedPersonHasTheGivenRole) {
  ASSERT_EQ(run("--add-user ada --role auditor", "a good password"), 0) << output_;
  ASSERT_EQ(run("--add-user bjarni", "a good password"), 0) << output_;
  EXPECT_EQ(run("--add-user carl --role king", "a good password"), 2);
  const RelayProcess relay(data_, {});
  Browser browser(static_cast<unsigned short>(relay.port()));
  const auto role = [&](const char* name) {
    const Json body = {{"name", name}, {"password", "a good password"}};
    return browser.request("POST", "/api/login", body.dump()).body.value("role", "");
  };
  EXPECT_EQ(role("ada"), "auditor");
  EXPECT_EQ(role("bjarni"), "representative");
}

TEST_F(ProgramTest, SetPasswordOptionEndsTheRepresentativesLogInsAtARunningRelay) {
  const RelayProcess relay(data_, {});
  const std::string old_password = first_password();
  std::string cookie;
  ASSERT_EQ(log_in(relay, "admin", old_password, &cookie), 200u);
  ASSERT_EQ(run("--set-password admin", "a new password"), 0) << output_;
  Browser browser(static_cast<unsigned short>(relay.port()));
  EXPECT_TRUE(vantelink_test::eventually(
      [&] { return browser.request("GET", "/api/me", {}, cookie).status == 401u; }));
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

TEST_F(ProgramTest, DataFolderThatOthersCanOpenIsRefused) {
  std::filesystem::create_directory(data_);
  ::chmod(data_.c_str(), 0755);
  EXPECT_EQ(run("--add-user ada", "long enough"), 1);
  EXPECT_EQ(output_, "vantelink-relay: the data folder " + data_ +
                         " is open to other users (mode 0755); run: chmod 700 " + data_ + '\n');
  ::chmod(data_.c_str(), 0700);
  EXPECT_EQ(run("--add-user ada", "long enough"), 0) << output_;
}

TEST_F(ProgramTest, PrivateKeyThatOthersCanReadIsRefused) {
  { const RelayProcess relay(data_, {}); }
  const std::string key = data_ + "/relay-key.pem";
  ::chmod(key.c_str(), 0640);
  // The relay does not get as far as to listen on an address that this host does not have.
  EXPECT_EQ(run("--address 192.0.2.1", ""), 1);
  EXPECT_EQ(output_, "vantelink-relay: the private key " + key +
                         " is open to other users (mode 0640); run: chmod 600 " + key + '\n');
}

TEST_F(ProgramTest, ConfigurationFileAndEnvironmentAreUsedAndTheirFaultsEndTheStart) {
  folder_.write("relay.conf", "data = " + data_ + "\nhost = [\"relay.example\"]\nconsent = 601\n");
  const std::string config = folder_.path() / "relay.conf";
  EXPECT_EQ(run("--config " + config, ""), 2);
  EXPECT_EQ(output_,
            "vantelink-relay: consent (" + config + ", line 3) needs a number from 1 to 600, not \"601\".\n");
  folder_.write("relay.conf", "host = [\"relay.example\"]\n");
  {
    const RelayProcess relay(data_, {"--config", config});
    EXPECT_EQ(relay.logged("listening on https://relay.example:"), 1) << relay.log();
  }
  ::setenv("VANTELINK_RELAY_PORT", "many", 1);
  EXPECT_EQ(run("--add-user ada", "a good password"), 2);
  ::unsetenv("VANTELINK_RELAY_PORT");
  EXPECT_EQ(
      output_,
      "vantelink-relay: VANTELINK_RELAY_PORT (environment) needs a number from 0 to 65535, not \"many\".\n");
}

TEST_F(ProgramTest, CheckFindsTheRunningRelayWellAndReturnsOneForAFault) {
  const RelayProcess relay(data_, {});
  const std::string port = std::to_string(relay.port());
  EXPECT_EQ(run("check --address 127.0.0.1 --port " + port, ""), 0) << output_;
  EXPECT_NE(
      output_.find("ok: port " + port + " of 127.0.0.1 is used by the relay of this data folder (process " +
                   std::to_string(relay.pid()) + ")\n"),
      std::string::npos)
      << output_;
  EXPECT_EQ(run("check --address 127.0.0.1 --port " + port + " --host other.invalid", ""), 1) << output_;
  EXPECT_NE(output_.find("wrong: the authority " + data_ + "/relay-cert.pem does not permit other.invalid"),
            std::string::npos)
      << output_;
}

TEST_F(ProgramTest, VersionIsPrinted) {
  EXPECT_EQ(run("--version", ""), 0);
  EXPECT_EQ(output_, std::string("vantelink-relay ") + kRelayVersion + "\n");
  EXPECT_FALSE(std::filesystem::exists(data_)) << "no data folder is created";
}

TEST_F(ProgramTest, HangUpLoadsTheCertificateAgainAndTheLogIsJson) {
  const RelayProcess relay(data_, {"--log-format", "json", "--metrics", "127.0.0.1:0"});
  EXPECT_EQ(relay.logged("\"text\":\"the port for operators is http://127.0.0.1:"), 1) << relay.log();
  const TestPair pair = make_test_pair(1000);
  overwrite_pair({data_ + "/relay-cert.pem", data_ + "/relay-key.pem"}, pair);
  ::kill(relay.pid(), SIGHUP);
  const auto port = static_cast<unsigned short>(relay.port());
  EXPECT_TRUE(vantelink_test::eventually([&] { return served_certificate(port) == pair.certificate; }));
  std::istringstream lines(relay.log());
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('{')) continue;
    const Json read = Json::parse(line, nullptr, false);
    EXPECT_TRUE(read.is_object() && read["text"].is_string()) << line;
    ++count;
  }
  EXPECT_GE(count, 2u) << relay.log();
}

}  // namespace
}  // namespace vlk::relay
