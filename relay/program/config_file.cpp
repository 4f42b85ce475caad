// Reads a configuration file with CLI11, after a check of what CLI11 would pass over in silence.
#include "relay/program/config_file.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace vlk::relay {
namespace {

constexpr std::size_t kLargestFile = 256u * 1024;

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::string read_text(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("The configuration file " + file + " cannot be read.");
  std::string text(kLargestFile + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (in.bad()) throw std::runtime_error("The configuration file " + file + " cannot be read.");
  text.resize(static_cast<std::size_t>(in.gcount()));
  if (text.size() > kLargestFile)
    throw std::runtime_error("The configuration file " + file + " is larger than 256 KiB.");
  return text;
}

bool is_key(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_';
  });
}

// What is wrong with a line, as the end of a sentence; empty if nothing is. Puts the line's key into `key`; a
// comment has none.
std::string fault_of(std::string_view line, std::string& key) {
  line = trimmed(line);
  if (line.empty() || line.front() == '#' || line.front() == ';') return {};
  for (const char c : line) {
    if (static_cast<unsigned char>(c) < ' ' && c != '\t') return "has a character that is not text";
  }
  if (line.front() == '[') return "begins a section, but the file has none";
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || !is_key(trimmed(line.substr(0, equals))))
    return "is not of the form \"key = value\"";
  key = trimmed(line.substr(0, equals));
  std::string_view value = line.substr(equals + 1);
  value = trimmed(value.substr(0, value.find('#')));
  if (value.find_first_not_of(" \t[]\"'") == std::string_view::npos && value != "[")
    return "has no value for " + key;
  // A list that goes on in the next line would swallow the settings that follow.
  if ((value.front() == '[') != (value.back() == ']') || value == "[")
    return "begins or ends a list that is not whole; a list is on one line";
  for (const char mark : {'"', '\''}) {
    if (std::count(value.begin(), value.end(), mark) % 2 != 0)
      return "has a quotation mark without its counterpart; a value cannot contain # or a quotation mark";
  }
  return {};
}

// Checks each line, and returns the first line of each key.
std::map<std::string, int> check_lines(const std::string& text, const std::string& file) {
  std::map<std::string, int> lines;
  std::istringstream in(text);
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    std::string key;
    const std::string fault = fault_of(line, key);
    if (!fault.empty())
      throw std::runtime_error("Line " + std::to_string(number) + " of " + file + ' ' + fault + '.');
    if (!key.empty()) lines.emplace(key, number);
  }
  return lines;
}

}  // namespace

std::vector<ConfigEntry> read_config(const std::string& file) {
  const std::string text = read_text(file);
  const std::map<std::string, int> lines = check_lines(text, file);
  std::istringstream in(text);
  std::vector<CLI::ConfigItem> items;
  try {
    items = CLI::ConfigTOML().from_config(in);
  } catch (const CLI::Error& failure) {
    throw std::runtime_error("The configuration file " + file + " cannot be read: " + failure.what() + '.');
  }
  std::vector<ConfigEntry> entries;
  for (const CLI::ConfigItem& item : items) {
    const auto same = [&](const ConfigEntry& entry) { return entry.key == item.name; };
    auto entry = std::find_if(entries.begin(), entries.end(), same);
    if (entry == entries.end()) {
      const auto line = lines.find(item.name);
      const std::string at = line == lines.end() ? "" : ", line " + std::to_string(line->second);
      entry = entries.insert(entry, {item.name, {}, item.name + " (" + file + at + ")"});
    }
    entry->values.insert(entry->values.end(), item.inputs.begin(), item.inputs.end());
  }
  return entries;
}

}  // namespace vlk::relay
