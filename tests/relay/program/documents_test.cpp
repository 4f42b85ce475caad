// The documents for operators name all that the program takes.
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "relay/base/source_file.h"
#include "relay/program/help.h"
#include "relay/program/option_table.h"

namespace vlk::relay {
namespace {

constexpr char kExample[] = "packaging/relay/relay.conf";

// The text as troff's source has it: a hyphen that can be copied has a backslash.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text)
    result += c == '-' ? std::string("\\-") : std::string(1, c);
  return result;
}

// An option's paragraph in the manual page.
std::string paragraph(const OptionRule& rule) {
  const std::string name = escaped(std::string("--") + rule.name);
  const std::string head = *rule.value == '\0' ? ".B " + name : ".BI " + name + " \" " + rule.value + "\"";
  return ".TP\n" + head + '\n' + escaped(rule.help) + ".\n";
}

TEST(DocumentsTest, ExampleOfAConfigurationFileIsMadeFromTheTable) {
  // To write the file after a change of the table: VANTELINK_WRITE_EXAMPLE=1
  if (std::getenv("VANTELINK_WRITE_EXAMPLE")) std::ofstream(source_path(kExample)) << example_config();
  EXPECT_EQ(source_file(kExample), example_config());
}

TEST(DocumentsTest, ManualPageHasEachOptionInTheWordsOfTheTable) {
  const std::string page = source_file("packaging/relay/vantelink-relay.8");
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules)
      EXPECT_NE(page.find(paragraph(rule)), std::string::npos) << "missing or different:\n"
                                                               << paragraph(rule);
  }
}

TEST(DocumentsTest, ManualPageHasNoOptionThatDoesNotExist) {
  const std::string page = source_file("packaging/relay/vantelink-relay.8");
  const std::string before = ".TP\n.BI \\-\\-";
  for (std::size_t at = 0; (at = page.find(before, at)) != std::string::npos;) {
    at += before.size();
    std::string name = page.substr(at, page.find(' ', at) - at);
    std::erase(name, '\\');
    EXPECT_NE(find_option(name), nullptr) << name;
  }
}

TEST(DocumentsTest, CommandsAreInTheHelpTextAndTheManuals) {
  const std::string page = source_file("packaging/relay/vantelink-relay.8");
  const std::string manual = source_file("docs/relay.md");
  for (const char* command : {"check", "backup", "restore", "authority", "verify-trail"}) {
    EXPECT_NE(help_text().find(std::string("\n  ") + command + ' '), std::string::npos) << command;
    EXPECT_NE(page.find(".B " + escaped(command)), std::string::npos) << command;
    EXPECT_NE(manual.find(std::string("vantelink-relay ") + command + ' '), std::string::npos) << command;
  }
}

TEST(DocumentsTest, ManualNamesEachOption) {
  const std::string manual = source_file("docs/relay.md");
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules)
      EXPECT_NE(manual.find(std::string("`--") + rule.name), std::string::npos) << rule.name;
  }
}

}  // namespace
}  // namespace vlk::relay
