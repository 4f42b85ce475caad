// Reads a configuration file.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

// The values of one key, in the order of the file.
struct ConfigEntry {
  std::string key;
  std::vector<std::string> values;
  std::string where;  // for messages: the key, the file and the line
};

// Reads lines of the form "key = value", in the INI or TOML form without sections; a list is in brackets on
// one line. A key that occurs in several lines gives one entry. Throws std::runtime_error with a sentence if
// the file cannot be read or is not of this form; whether a key exists is left to the caller.
[[nodiscard]] std::vector<ConfigEntry> read_config(const std::string& file);

}  // namespace vlk::relay
