// Lays out the table of options.
#include "relay/program/help.h"

#include <string_view>

#include "relay/program/option_table.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kHelpWidth = 112;
constexpr std::size_t kHelpColumn = 23;
constexpr std::size_t kConfigWidth = 100;

constexpr char kCommands[] = R"(
Commands
  check                what is wrong with the set-up that the same options describe? Changes nothing; exit code 0 if
                       nothing is wrong, 1 otherwise; the relay may run meanwhile
  backup FILE [--data DIR]
                       write the database, the keys and the relay's authority to one file, also while the relay runs
  restore FILE [--data DIR] [--replace]
                       put a backup into a data folder that has no database; with --replace what the folder has is
                       kept in before-restore-TIME. The relay must be stopped. Everybody logs in again
  authority prepare [--data DIR] [--host NAME ...]
                       make the certificate of a new authority, relay-next-cert.pem in the data folder, so that machines
                       trust it before it is used
  authority renew [--data DIR] [--host NAME ...]
                       use the prepared authority, or a new one; the one before is kept beside it. A relay that runs
                       notices it. Machines that do not trust the new one cannot connect
  verify-trail FILE [--key FILE]
                       check an export of the audit trail, or a file of --trail-log: was a row changed or removed?
  verify-trail --data DIR [--key FILE]
                       check the audit trail in the database of a data folder. Exit code 0 if no row was touched, 1 if
                       one was, 2 if the trail cannot be read

Information
  --help               print this text and exit
  --version            print the version and exit

The first start adds the administrator "admin" with a one-time password, which must be changed at the first
log-in. It prints the password, or writes it to the file "first-password" in the data folder if the output is
not a terminal.
)";

constexpr char kConfigHead[] =
    "# The configuration of vantelink-relay, which reads it with: vantelink-relay --config FILE\n"
    "# Each setting has the name of an option. A line that begins with # has no effect: remove the # to set "
    "it.\n"
    "# A setting of the environment (VANTELINK_RELAY_PORT for port) replaces one of this file, and an "
    "option\n"
    "# of the command line replaces both. Put a text with spaces between quotation marks. A list is on one\n"
    "# line. \"vantelink-relay check --config FILE\" says what is wrong with a set-up.\n";

// Appends the text, broken into lines of at most `width` characters. `column` characters of the first line
// are taken; each further line begins with `indent`.
void append_wrapped(std::string& out, std::string_view text, std::size_t column, std::size_t width,
                    const std::string& indent) {
  bool first = true;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (!first && column + 1 + end > width) {
      out += '\n' + indent;
      column = indent.size();
    } else if (!first) {
      out += ' ';
      ++column;
    }
    out += text.substr(0, end);
    column += end;
    text.remove_prefix(std::min(end + 1, text.size()));
    first = false;
  }
  out += '\n';
}

void append_option(std::string& out, const OptionRule& rule) {
  std::string line = std::string("  --") + rule.name;
  if (*rule.value != '\0') line += std::string(" ") + rule.value;
  if (line.size() + 1 >= kHelpColumn) {
    out += line + '\n';
    line.clear();
  }
  line.resize(kHelpColumn, ' ');
  out += line;
  append_wrapped(out, rule.help, kHelpColumn, kHelpWidth, std::string(kHelpColumn, ' '));
}

}  // namespace

std::string help_text() {
  std::string out =
      "vantelink-relay: connects representatives with the machines that they support\n\n"
      "  vantelink-relay [options]\n"
      "  vantelink-relay COMMAND [options]\n";
  for (const OptionGroup& group : option_groups()) {
    out += '\n' + std::string(group.title) + '\n';
    for (const OptionRule& rule : group.rules)
      append_option(out, rule);
    if (*group.note != '\0') {
      out += '\n';
      append_wrapped(out, group.note, 0, kHelpWidth, {});
    }
  }
  return out + kCommands;
}

std::string example_config() {
  std::string out = kConfigHead;
  for (const OptionGroup& group : option_groups()) {
    bool titled = false;
    for (const OptionRule& rule : group.rules) {
      if (rule.kind == OptionRule::Kind::Action) continue;
      if (!titled) out += "\n# " + std::string(group.title) + '\n';
      titled = true;
      out += "\n# ";
      append_wrapped(out, rule.help, 2, kConfigWidth, "# ");
      out += '#' + std::string(rule.name) + " = " + rule.example + '\n';
    }
  }
  return out;
}

}  // namespace vlk::relay
