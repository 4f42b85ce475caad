// The configuration file and the environment beside the command line.
#include <map>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include "relay/program/config_file.h"
#include "relay/program/help.h"
#include "relay/program/option_table.h"
#include "relay/program/options.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

class ConfigTest : public testing::Test {
 protected:
  // Reads the file with this content, besides the arguments. Returns the problem; empty for none.
  std::string read(const std::string& content, std::vector<std::string> arguments = {}) {
    folder_.write("relay.conf", content);
    arguments.insert(arguments.end(), {"--config", file_});
    options_ = {};
    std::string problem;
    const auto environment = [this](const std::string& name) {
      const auto found = variables_.find(name);
      return found == variables_.end() ? std::nullopt : std::optional(found->second);
    };
    const bool accepted = parse_options(arguments, options_, problem, environment);
    EXPECT_EQ(accepted, problem.empty());
    return problem;
  }

  vantelink_test::TempFolder folder_;
  const std::string file_ = folder_.path() / "relay.conf";
  std::map<std::string, std::string> variables_;
  Options options_;
};

TEST_F(ConfigTest, SettingsOfAllKindsAreRead) {
  ASSERT_EQ(read("# a comment\n\n"
                 "port = 443  # another\n"
                 "data=/var/lib/vantelink\n"
                 "console = \"/srv/the console\"\r\n"
                 "trusted-proxy = [\"10.0.0.0/8\", \"::1\"]\n"
                 "trusted-proxy = 192.0.2.1\n"
                 "proxy-protocol = true\n"
                 "idle-minutes = 15"),
            "");
  EXPECT_EQ(options_.port, 443);
  EXPECT_EQ(options_.data, "/var/lib/vantelink");
  EXPECT_EQ(options_.console, "/srv/the console");
  EXPECT_EQ(options_.proxies, (std::vector<std::string>{"10.0.0.0/8", "::1", "192.0.2.1"}));
  EXPECT_TRUE(options_.proxy_protocol);
  EXPECT_EQ(options_.idle_minutes, 15);
}

TEST_F(ConfigTest, CommandLineReplacesEnvironmentAndEnvironmentReplacesFile) {
  const std::string content = "port = 1\nhold = 1\nconsent = 1\nhost = [\"file.example\"]\n";
  variables_ = {{"VANTELINK_RELAY_PORT", "2"},
                {"VANTELINK_RELAY_HOLD", "2"},
                {"VANTELINK_RELAY_HOST", "a.example, b.example"},
                {"VANTELINK_RELAY_CONSENT", ""}};
  ASSERT_EQ(read(content, {"--port", "3"}), "");
  EXPECT_EQ(options_.port, 3);
  EXPECT_EQ(options_.hold_s, 2u);
  EXPECT_EQ(options_.consent_s, 1u) << "an empty variable is not set";
  EXPECT_EQ(options_.hosts, (std::vector<std::string>{"a.example", "b.example"}));
  ASSERT_EQ(read(content, {"--host", "c.example"}), "");
  EXPECT_EQ(options_.hosts, std::vector<std::string>{"c.example"});
}

TEST_F(ConfigTest, TimeForConsentIsFromOneToSixHundredSeconds) {
  for (const char* const bad : {"0", "601", "-1", "1.5", "x", ""})
    EXPECT_NE(read("", {"--consent", bad}), "") << bad;
  for (const unsigned good : {1u, 600u}) {
    ASSERT_EQ(read("", {"--consent", std::to_string(good)}), "");
    EXPECT_EQ(options_.consent_s, good);
  }
}

TEST_F(ConfigTest, EnvironmentNamesTheFile) {
  folder_.write("other.conf", "port = 7\n");
  variables_ = {{"VANTELINK_RELAY_CONFIG", folder_.path() / "other.conf"}};
  Options options;
  std::string problem;
  ASSERT_TRUE(parse_options({}, options, problem, [this](const std::string& name) {
    return variables_.contains(name) ? std::optional(variables_[name]) : std::nullopt;
  })) << problem;
  EXPECT_EQ(options.port, 7);
}

TEST_F(ConfigTest, ActionsAreForTheCommandLineOnly) {
  variables_ = {{"VANTELINK_RELAY_ADD_USER", "ada"}};
  EXPECT_EQ(read(""), "");
  EXPECT_EQ(options_.action, Action::Serve);
  EXPECT_EQ(read("add-user = ada\n"),
            "add-user (" + file_ + ", line 1) can only be given on the command line.");
  EXPECT_EQ(read("config = other.conf\n"),
            "config (" + file_ + ", line 1) can only be given on the command line.");
}

TEST_F(ConfigTest, MessagesNameWhereAWrongValueCameFrom) {
  EXPECT_EQ(read("\nport = many\n"),
            "port (" + file_ + ", line 2) needs a number from 0 to 65535, not \"many\".");
  EXPECT_EQ(read("hold = 3601\n"),
            "hold (" + file_ + ", line 1) needs a number from 0 to 3600, not \"3601\".");
  EXPECT_EQ(read("proxy-protocol = perhaps\n"),
            "proxy-protocol (" + file_ + ", line 1) needs true or false, not \"perhaps\".");
  EXPECT_EQ(read("# x\nprot = 1\n"),
            "There is no setting prot (" + file_ + ", line 2); --help lists the options.");
  variables_ = {{"VANTELINK_RELAY_PORT", "x"}};
  EXPECT_EQ(read(""), "VANTELINK_RELAY_PORT (environment) needs a number from 0 to 65535, not \"x\".");
}

TEST_F(ConfigTest, WrongValueIsReportedAlsoWhereAnotherSourceReplacesIt) {
  EXPECT_NE(read("port = many\n", {"--port", "1"}), "");
}

TEST_F(ConfigTest, WhatIsNotOfTheFormIsRefusedWithItsLine) {
  for (const char* line : {"port",           "ab",         "[relay]",
                           "[[relay]]",      "= 5",        "a b = 5",
                           "relay.port = 5", "port =",     "port = # 5",
                           "data = \"\"",    "host = [",   "host = [\"a\"",
                           "host = \"a\"]",  "data = \"a", "data = \"/srv/#1\"",
                           "data = a\x01",   "x",          "\"port\" = 5",
                           "port : 5",       "host = []",  "host = [ ]"}) {
    const std::string problem = read(std::string("hold = 1\n") + line + "\nport = 443\n");
    EXPECT_TRUE(problem.starts_with("Line 2 of " + file_)) << line << ": " << problem;
    EXPECT_TRUE(problem.ends_with('.')) << problem;
  }
  EXPECT_NE(read(std::string("port = 1\0", 9)), "");
  EXPECT_EQ(read("port = 1\nport = 2\n"), "port (" + file_ +
                                              ", line 1) has 2 values, but takes one; put a text "
                                              "with spaces between quotation marks.");
  EXPECT_EQ(read("[relay]\n"), "Line 1 of " + file_ + " begins a section, but the file has none.");
  EXPECT_NE(read("data = /srv/the data\n").find("has 2 values"), std::string::npos);
}

TEST_F(ConfigTest, FileThatIsNoTextOrTooLargeIsRefused) {
  EXPECT_NE(read(std::string(300 * 1024, '#')).find("larger than 256 KiB"), std::string::npos);
  Options options;
  std::string problem;
  EXPECT_FALSE(parse_options({"--config", folder_.path()}, options, problem));
  EXPECT_NE(problem.find("cannot be read"), std::string::npos) << problem;
}

TEST_F(ConfigTest, EachSettingOfTheExampleIsAccepted) {
  std::istringstream lines(example_config());
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    if (line.size() < 2 || line[0] != '#' || line[1] == ' ') continue;
    folder_.write("relay.conf", line.substr(1) + '\n');
    const auto entries = read_config(file_);
    ASSERT_EQ(entries.size(), 1u) << line;
    const OptionRule* rule = find_option(entries.front().key);
    ASSERT_NE(rule, nullptr) << line;
    Options options;
    std::string problem;
    for (const std::string& value : entries.front().values)
      EXPECT_TRUE(rule->store(options, value, line, problem)) << problem;
    ++count;
  }
  EXPECT_GE(count, 23);
}

TEST_F(ConfigTest, DamagedFilesAreReadOrRefusedInOneSentence) {
  const std::string whole = "port = 443\nhost = [\"a.example\", 'b']\nproxy-protocol = true\n# end\n";
  std::mt19937 random(1);
  for (int i = 0; i < 500; ++i) {
    std::string damaged = whole.substr(0, random() % (whole.size() + 1));
    for (unsigned k = random() % 4; k > 0 && !damaged.empty(); --k)
      damaged[random() % damaged.size()] = "[]=\"'#;,\n\0\\x"[random() % 12];
    folder_.write("relay.conf", damaged);
    try {
      static_cast<void>(read_config(file_));
    } catch (const std::runtime_error& refusal) {
      EXPECT_EQ(std::string(refusal.what()).find('\n'), std::string::npos) << damaged;
    }
  }
}

}  // namespace
}  // namespace vlk::relay
