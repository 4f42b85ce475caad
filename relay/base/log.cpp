// Formats the lines of the relay's log.
#include "relay/base/log.h"

#include <cstdio>
#include <ctime>

#include "relay/base/text.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kLongestField = 400;  // bytes

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

void Log::write(std::string_view peer, std::string_view agent, std::string_view text) const {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &parts);
  std::string line = stamp;
  line += " peer=";
  line += peer.empty() ? "-" : one_line(peer);
  line += " agent=";
  line += agent.empty() ? "-" : one_line(agent);
  line += ' ';
  line += one_line(text);
  sink_(line);
}

}  // namespace vlk::relay
