// The relay's command line.
#include "relay/options.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using Arguments = std::vector<std::string>;

TEST(OptionsTest, InvalidOptionsAreReportedInOneSentence) {
  const std::vector<Arguments> invalid = {
      {"--nonsense"},         {"--port"},          {"--port", "65536"},
      {"--port", "-1"},       {"--port", "8443x"}, {"--cert", "a.pem"},
      {"--key", "a.pem"},     {"--data", ""},      {"--add-user", " ada"},
      {"--add-user", "a\"b"}, {"extra"},           {"--add-user", "ada", "--remove-user", "ada"},
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
  options = {};
  EXPECT_FALSE(parse_options({"--updates"}, options, problem));
  EXPECT_EQ(problem, "--updates needs a value.");
}

TEST(OptionsTest, NamesOfRepresentativesAreLimitedInLengthAndCharacters) {
  for (const std::string& name : {std::string("ada"), std::string("Sigga Jónsdóttir"), std::string(64, 'x')})
    EXPECT_TRUE(valid_user_name(name)) << name;
  for (const std::string& name :
       {std::string(), std::string(65, 'x'), std::string(" ada"), std::string("ada "), std::string("a\"b"),
        std::string("a\\b"), std::string("a\nb"), std::string("a\x7F")})
    EXPECT_FALSE(valid_user_name(name)) << name;
}

}  // namespace
}  // namespace vlk::relay
