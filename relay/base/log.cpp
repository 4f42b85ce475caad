// Formats the lines of the relay's log.
#include "relay/base/log.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include <nlohmann/json.hpp>

#include "relay/base/source/source.h"
#include "relay/base/text.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kLongestField = 400;  // bytes
constexpr std::size_t kLongestKind = 40;    // bytes

// What the lines of an event have in common: the text before its first detail.
std::string_view kind_of(std::string_view text) {
  return text.substr(0, std::min(text.find_first_of(":\"0123456789"), kLongestKind));
}

std::string time_text() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char stamp[32];
  return {stamp, std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string text_line(std::string_view peer, std::string_view agent, std::string_view text) {
  std::string line = time_text();
  line += " peer=";
  line += peer.empty() ? "-" : one_line(peer);
  line += " agent=";
  line += agent.empty() ? "-" : one_line(agent);
  line += ' ';
  line += one_line(text);
  return line;
}

// Bytes that are not UTF-8 become U+FFFD, so that every line can be parsed.
std::string json_line(std::string_view peer, std::string_view agent, std::string_view text) {
  const nlohmann::ordered_json line = {{"time", time_text()},
                                       {"peer", cut_utf8(peer, kLongestField)},
                                       {"agent", cut_utf8(agent, kLongestField)},
                                       {"text", cut_utf8(text, kLongestField)}};
  return line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

LogSink standard_error_sink() {
  return [](std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
  };
}

std::string one_line(std::string_view text) {
  return without_controls(std::string(cut_utf8(text, kLongestField)));
}

std::optional<LogFormat> log_format_of(std::string_view name) {
  if (name == "text") return LogFormat::Text;
  if (name == "json") return LogFormat::JsonLines;
  return std::nullopt;
}

void Log::write(std::string_view peer, std::string_view agent, std::string_view text) const {
  if (peer.empty() || count(peer, text)) return write_line(peer, agent, text);
  ++left_out_;
}

bool Log::count(std::string_view peer, std::string_view text) const {
  const auto now = Clock::now();
  std::pair<std::string, std::string> key(source_in(peer), kind_of(text));
  auto found = counts_.find(key);
  if (found == counts_.end()) {
    if (counts_.size() >= rate_.keys) {
      ++uncounted_;
      return false;
    }
    found = counts_.emplace(std::move(key), Count{now}).first;
  }
  Count& its = found->second;
  if (now - its.begin >= rate_.window) {
    write_left_out(found->first, its);
    its = {now};
  }
  return ++its.lines <= rate_.lines;
}

void Log::end_windows(Clock::time_point now) const {
  if (now - checked_ < std::chrono::seconds(1)) return;
  checked_ = now;
  std::erase_if(counts_, [&](const auto& entry) {
    if (now - entry.second.begin < rate_.window) return false;
    write_left_out(entry.first, entry.second);
    return true;
  });
  if (const std::size_t count = std::exchange(uncounted_, 0))
    write_line("", "", "and " + std::to_string(count) + " more lines of many sources");
}

void Log::write_left_out(const std::pair<std::string, std::string>& key, const Count& count) const {
  if (count.lines <= rate_.lines) return;
  write_line(key.first, "", key.second + "... and " + std::to_string(count.lines - rate_.lines) + " more");
}

void Log::write_line(std::string_view peer, std::string_view agent, std::string_view text) const {
  ++lines_;
  sink_(format_ == LogFormat::JsonLines ? json_line(peer, agent, text) : text_line(peer, agent, text));
}

}  // namespace vlk::relay
