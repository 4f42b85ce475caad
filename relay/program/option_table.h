// The table of all options. The command line, the configuration file, the environment, the help text and the
// example of a configuration file are made from it.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "relay/program/options.h"

namespace vlk::relay {

// Stores one value. If it is invalid, returns false and puts a sentence into `problem`. `where` says where
// the value came from, as the subject of that sentence, such as "--port".
using Setter =
    std::function<bool(Options&, const std::string& value, const std::string& where, std::string& problem)>;

struct OptionRule {
  enum class Kind {
    Value,  // the last one given counts
    List,   // all that are given count
    Flag,   // takes no value on the command line
    Action  // only on the command line: it says what to do once, not how to serve
  };

  const char* name;     // without the hyphens
  const char* value;    // what stands for the value in the help text; empty for a flag
  const char* help;     // a phrase
  const char* example;  // a value for the example of a configuration file: the default, if it can be written
  Kind kind;
  Setter store;
};

struct OptionGroup {
  const char* title;
  const char* note;  // sentences below the group's options; may be empty
  std::span<const OptionRule> rules;
};

// The groups in the order of the help text.
[[nodiscard]] std::span<const OptionGroup> option_groups();

// The option of this name, or null.
[[nodiscard]] const OptionRule* find_option(const std::string& name);

// The variable of the environment for a rule, such as VANTELINK_RELAY_PORT.
[[nodiscard]] std::string variable_of(const std::string& name);

}  // namespace vlk::relay
