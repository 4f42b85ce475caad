// Reads the command line with CLI11, and brings it together with the environment and the configuration file.
#include "relay/program/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <stdexcept>

#include "relay/program/config_file.h"
#include "relay/program/option_table.h"

namespace vlk::relay {
namespace {

// A sentence about what the operator gave.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The parser of the command line. It only collects texts: the table of settings checks them, so that a
// message about a value is the same wherever the value came from.
class CommandLine {
 public:
  explicit CommandLine(Options& options);
  // Throws Refusal.
  void parse(const std::vector<std::string>& arguments);
  // The values of an option in the order in which they were given; none if it was not given.
  [[nodiscard]] const std::vector<std::string>& values(const std::string& name) const;
  // The command that was given; empty for none.
  [[nodiscard]] std::string command() const;
  // The action of the command, of --help or of --version; Serve for anything else.
  [[nodiscard]] Action action() const;

 private:
  // One way to write each thing: an option takes one value each time, also when it may be repeated.
  static CLI::Option* one_value(CLI::Option* option) {
    return option->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }
  void refuse_rest();

  CLI::App app_;
  std::map<std::string, CLI::Option*> options_;
  std::map<std::string, Action> commands_;
  bool help_ = false;
};

CommandLine::CommandLine(Options& options) {
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules) {
      const std::string name = std::string("--") + rule.name;
      options_[rule.name] = rule.kind == OptionRule::Kind::Flag
                                ? app_.add_flag(name)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                                : one_value(app_.add_option(name));
    }
  }
  options_["version"] = app_.add_flag("--version");
  app_.require_subcommand(0, 1);
  const auto add = [this](const char* name, Action action) {
    commands_[name] = action;
    return app_.add_subcommand(name)->fallthrough();
  };
  add("check", Action::Check);
  add("backup", Action::Backup)->add_option("FILE", options.file);
  CLI::App* const restore = add("restore", Action::Restore);
  restore->add_option("FILE", options.file);
  restore->add_flag("--replace", options.replace);
  add("authority", Action::Authority)->add_option("STEP", options.step);
  // The command has a --data and a --key of its own, which no environment or file sets: it judges exactly
  // what it was given.
  CLI::App* const verify = add("verify-trail", Action::VerifyTrail)->fallthrough(false);
  verify->add_option("FILE", options.trail.file);
  verify->add_option("--data", options.trail.data);
  verify->add_option("--key", options.trail.key);
}

void CommandLine::parse(const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app_.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    help_ = true;
  } catch (const CLI::ExtrasError&) {
    if (action() != Action::Version) refuse_rest();
  } catch (const CLI::ArgumentMismatch& mismatch) {
    const std::string text = mismatch.what();
    throw Refusal(text.substr(0, text.find(':')) + " needs a value.");
  } catch (const CLI::ParseError& failure) {
    throw Refusal(std::string("The command line cannot be read: ") + failure.what() +
                  "; --help lists the options.");
  }
}

void CommandLine::refuse_rest() {
  const auto rest = app_.remaining(true);
  const std::string first = rest.empty() ? "--" : rest.front();
  const char* const kind = first.starts_with('-') ? "option" : "command";
  throw Refusal("There is no " + std::string(kind) + " \"" + first + "\"" +
                (command().empty() ? "" : " for " + command()) + "; --help lists the options and commands.");
}

const std::vector<std::string>& CommandLine::values(const std::string& name) const {
  return options_.at(name)->results();
}

std::string CommandLine::command() const {
  const auto given = app_.get_subcommands();
  return given.empty() ? std::string() : given.front()->get_name();
}

Action CommandLine::action() const {
  if (help_) return Action::Help;
  if (options_.at("version")->count() > 0) return Action::Version;
  const auto found = commands_.find(command());
  return found == commands_.end() ? Action::Serve : found->second;
}

void store(const OptionRule& rule, const std::string& value, const std::string& where, Options& options) {
  std::string problem;
  if (value.empty()) throw Refusal(where + " needs a value.");
  if (!rule.store(options, value, where, problem)) throw Refusal(problem);
}

// The parts of a list in the environment, which are separated by commas or spaces.
std::vector<std::string> parts_of(const std::string& text) {
  std::vector<std::string> parts;
  std::string part;
  for (const char c : text + ',') {
    if (c != ',' && c != ' ') {
      part += c;
    } else if (!part.empty()) {
      parts.push_back(std::move(part));
      part.clear();
    }
  }
  return parts;
}

// Service managers set a variable to an empty text where they mean nothing.
std::string variable_value(const Environment& environment, const std::string& name) {
  return environment ? environment(variable_of(name)).value_or("") : std::string();
}

// The options that a command takes besides its own.
bool fits_command(Action action, const OptionRule& rule) {
  const std::string name = rule.name;
  if (action == Action::Check) return rule.kind != OptionRule::Kind::Action || name == "config";
  if (action == Action::Backup || action == Action::Restore)
    return name == "data" || name == "database" || name == "config";
  if (action == Action::Authority) return name == "data" || name == "config" || name == "host";
  return action != Action::VerifyTrail;
}

// The settings of the configuration file.
class ConfigFile {
 public:
  explicit ConfigFile(const std::string& file) {
    if (file.empty()) return;
    entries_ = read_config(file);
    for (const ConfigEntry& entry : entries_) {
      const OptionRule* rule = find_option(entry.key);
      if (!rule) throw Refusal("There is no setting " + entry.where + "; --help lists the options.");
      if (rule->kind == OptionRule::Kind::Action)
        throw Refusal(entry.where + " can only be given on the command line.");
      if (rule->kind != OptionRule::Kind::List && entry.values.size() > 1) {
        throw Refusal(entry.where + " has " + std::to_string(entry.values.size()) +
                      " values, but takes one; put a text with spaces between quotation marks.");
      }
      // A value that another source replaces is checked too, or the fault would show on the day on which that
      // source is gone.
      Options trial;
      for (const std::string& value : entry.values)
        store(*rule, value, entry.where, trial);
    }
  }
  [[nodiscard]] const ConfigEntry* find(const std::string& key) const {
    const auto same = [&](const ConfigEntry& entry) { return entry.key == key; };
    const auto found = std::find_if(entries_.begin(), entries_.end(), same);
    return found == entries_.end() ? nullptr : &*found;
  }

 private:
  std::vector<ConfigEntry> entries_;
};

// Stores the values of the first source that has the rule.
void store_setting_of(const OptionRule& rule, const CommandLine& line, const Environment& environment,
                      const ConfigFile& file, Options& options) {
  const std::vector<std::string>& given = line.values(rule.name);
  if (!given.empty()) {
    for (const std::string& value : given)
      store(rule, value, std::string("--") + rule.name, options);
    return;
  }
  if (rule.kind == OptionRule::Kind::Action) return;
  const std::string variable = variable_value(environment, rule.name);
  if (!variable.empty()) {
    const std::string where = variable_of(rule.name) + " (environment)";
    const bool list = rule.kind == OptionRule::Kind::List;
    for (const std::string& value : list ? parts_of(variable) : std::vector{variable})
      store(rule, value, where, options);
  } else if (const ConfigEntry* entry = file.find(rule.name)) {
    for (const std::string& value : entry->values)
      store(rule, value, entry->where, options);
  }
}

// Checks what several settings say together.
void check_combinations(const Options& options) {
  if (options.certificate.empty() != options.key.empty())
    throw Refusal("--cert and --key must be given together.");
  if (options.machines > 0 && options.action != Action::OpenEnrolment)
    throw Refusal("--machines can only be given with --open-enrolment.");
  if (!options.role.empty() && options.action != Action::AddUser)
    throw Refusal("--role can only be given with --add-user.");
  if (options.relay_name.empty() != options.relay_address.empty())
    throw Refusal("--relay-name and --relay-address must be given together.");
  if (!options.relay_name.empty() && options.database.empty())
    throw Refusal("--relay-name needs --database: several relays share a PostgreSQL database.");
  const bool says_how = options.proxy_protocol || !options.proxy_header.empty();
  if (options.proxies.empty() == says_how || (options.proxy_protocol && !options.proxy_header.empty())) {
    throw Refusal(
        "--trusted-proxy needs either --proxy-protocol or --proxy-header, and these need --trusted-proxy.");
  }
}

void check_command(const CommandLine& line, const Options& options) {
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules) {
      if (!line.values(rule.name).empty() && !fits_command(line.action(), rule))
        throw Refusal(std::string("--") + rule.name + " cannot be given with " + line.command() + '.');
    }
  }
  const bool needs_file = line.action() == Action::Backup || line.action() == Action::Restore;
  if (needs_file && options.file.empty()) throw Refusal(line.command() + " needs the name of a file.");
  if (line.action() == Action::Authority && options.step != "prepare" && options.step != "renew")
    throw Refusal("authority needs the word prepare or renew.");
}

void read_all(const std::vector<std::string>& arguments, const Environment& environment, Options& options) {
  CommandLine line(options);
  line.parse(arguments);
  const Action action = line.action();
  if (action == Action::Help || action == Action::Version) {
    options.action = action;
    return;
  }
  check_command(line, options);
  if (action == Action::VerifyTrail) {
    options.action = action;
    return;
  }
  for (const std::string& value : line.values("config"))
    store(*find_option("config"), value, "--config", options);
  if (options.config.empty()) options.config = variable_value(environment, "config");
  const ConfigFile file(options.config);
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules)
      store_setting_of(rule, line, environment, file, options);
  }
  if (action != Action::Serve) options.action = action;
  check_combinations(options);
  if (options.updates.empty()) options.updates = options.data + "/updates";
  if (options.hosts.empty()) options.hosts.emplace_back("localhost");
}

}  // namespace

bool parse_options(const std::vector<std::string>& arguments, Options& options, std::string& problem,
                   const Environment& environment) {
  try {
    read_all(arguments, environment, options);
    return true;
  } catch (const std::runtime_error& refusal) {
    problem = refusal.what();
    return false;
  }
}

}  // namespace vlk::relay
