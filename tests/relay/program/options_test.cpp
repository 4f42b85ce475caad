// The relay's command line.
#include "relay/program/options.h"

#include <gtest/gtest.h>

#include "relay/program/help.h"

namespace vlk::relay {
namespace {

using Arguments = std::vector<std::string>;

TEST(OptionsTest, InvalidOptionsAreReportedInOneSentence) {
  const std::vector<Arguments> invalid = {
      {"--nonsense"},
      {"--port"},
      {"--port", "65536"},
      {"--port", "-1"},
      {"--port", "8443x"},
      {"--cert", "a.pem"},
      {"--key", "a.pem"},
      {"--data", ""},
      {"--add-user", " ada"},
      {"--add-user", "a\"b"},
      {"extra"},
      {"--log-format", "xml"},
      {"--metrics", "9464"},
      {"--metrics", "localhost:9464"},
      {"--add-user", "ada", "--remove-user", "ada"},
      {"--add-user", "ada", "--open-enrolment", "5"},
      {"--port", "--data", "d"},
      {"--host", "a", "b"},
      {"--proxy-protocol=perhaps"},
      {"backup"},
      {"backup", "a", "b"},
      {"backup", "a", "--port", "1"},
      {"backup", "a", "--replace"},
      {"restore", "--replace"},
      {"check", "--add-user", "ada"},
      {"check", "check"},
      {"check", "backup", "a"},
      {"verify-trail", "a", "b"},
      {"verify-trail", "--data"},
      {"verify-trail", "--other", "x"},
      {"--data", "d", "verify-trail", "a"},
      {"--config", "/nonexistent"},
  };
  for (const auto& arguments : invalid) {
    Options options;
    std::string problem;
    EXPECT_FALSE(parse_options(arguments, options, problem)) << arguments.front();
    EXPECT_TRUE(problem.ends_with('.')) << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos);
  }
}

TEST(OptionsTest, ValidOptionsAreStored) {
  Options options;
  std::string problem;
  ASSERT_TRUE(parse_options({"--port", "0", "--host", "a.example", "--host", "10.0.0.1", "--data", "d"},
                            options, problem));
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.hosts, (std::vector<std::string>{"a.example", "10.0.0.1"}));
  EXPECT_EQ(options.data, "d");
  ASSERT_TRUE(parse_options({"--log-format", "json", "--metrics", "[::1]:9464"}, options, problem));
  EXPECT_EQ(options.log_format, "json");
  EXPECT_EQ(options.metrics, "[::1]:9464");
  Options none;
  ASSERT_TRUE(parse_options({}, none, problem));
  EXPECT_EQ(none.hosts, std::vector<std::string>{"localhost"});
}

TEST(OptionsTest, HelpAndVersionNeedNoFurtherOptions) {
  for (const auto& [name, action] : {std::pair("--help", Action::Help), std::pair("-h", Action::Help),
                                     std::pair("--version", Action::Version)}) {
    Options options;
    std::string problem;
    ASSERT_TRUE(parse_options({name}, options, problem)) << name;
    EXPECT_EQ(options.action, action) << name;
    if (std::string(name).starts_with("--")) {
      EXPECT_NE(help_text().find(name), std::string::npos);
    }
  }
}

TEST(OptionsTest, UpdatesFolderIsTheGivenFolderOrUpdatesInTheDataFolder) {
  Options options;
  std::string problem;
  ASSERT_TRUE(parse_options({"--data", "d"}, options, problem));
  EXPECT_EQ(options.updates, "d/updates");
  options = {};
  ASSERT_TRUE(parse_options({"--updates", "u", "--data", "d"}, options, problem));
  EXPECT_EQ(options.updates, "u");
  EXPECT_EQ(options.update_key, "");
  ASSERT_TRUE(parse_options({"--update-key", "k.pem"}, options, problem));
  EXPECT_EQ(options.update_key, "k.pem");
  options = {};
  EXPECT_FALSE(parse_options({"--updates"}, options, problem));
  EXPECT_EQ(problem, "--updates needs a value.");
}

TEST(OptionsTest, RoleIsOnlyForANewPerson) {
  Options options;
  std::string problem;
  EXPECT_TRUE(parse_options({"--add-user", "ada", "--role", "auditor"}, options, problem));
  EXPECT_EQ(options.role, "auditor");
  options = {};
  EXPECT_FALSE(parse_options({"--role", "auditor"}, options, problem));
  EXPECT_EQ(problem, "--role can only be given with --add-user.");
}

TEST(OptionsTest, TimesOfLogInsAreRead) {
  Options options;
  std::string problem;
  EXPECT_TRUE(parse_options({"--login-hours", "8", "--idle-minutes", "15"}, options, problem));
  EXPECT_EQ(options.login_hours, 8);
  EXPECT_EQ(options.idle_minutes, 15);
  EXPECT_FALSE(parse_options({"--login-hours", "0"}, options, problem));
  EXPECT_FALSE(parse_options({"--idle-minutes", "1"}, options, problem)) << "no longer than the warning";
  EXPECT_TRUE(parse_options({"--idle-minutes", "0"}, options, problem));
}

TEST(OptionsTest, LimitsAreNumbersInTheirRange) {
  Options options;
  std::string problem;
  EXPECT_TRUE(
      parse_options({"--connections", "64", "--enrolments", "1", "--log-ins", "5"}, options, problem));
  EXPECT_EQ(options.connections, 64u);
  EXPECT_EQ(options.enrolments, 1u);
  EXPECT_EQ(options.log_ins, 5u);
  for (const char* value : {"63", "x", "-1", "100x", "99999999999999999999"}) {
    EXPECT_FALSE(parse_options({"--connections", value}, options, problem)) << value;
    EXPECT_NE(problem.find("--connections needs a number from 64"), std::string::npos) << problem;
  }
}

TEST(OptionsTest, TrustedProxiesNeedExactlyOneWayToNameTheSource) {
  const auto accepted = [](const std::vector<std::string>& arguments) {
    Options options;
    std::string problem;
    return parse_options(arguments, options, problem);
  };
  EXPECT_TRUE(accepted({"--trusted-proxy", "10.0.0.0/8", "--proxy-protocol"}));
  EXPECT_TRUE(
      accepted({"--trusted-proxy", "::1", "--trusted-proxy", "10.1.1.1", "--proxy-header", "X-Real-IP"}));
  EXPECT_FALSE(accepted({"--trusted-proxy", "10.0.0.0/8"}));
  EXPECT_FALSE(accepted({"--proxy-protocol"}));
  EXPECT_FALSE(accepted({"--proxy-header", "X-Real-IP"}));
  EXPECT_FALSE(accepted({"--trusted-proxy", "::1", "--proxy-header", "X", "--proxy-protocol"}));
  EXPECT_FALSE(accepted({"--trusted-proxy", "10.0.0.0/40", "--proxy-protocol"}));
}

}  // namespace
}  // namespace vlk::relay
