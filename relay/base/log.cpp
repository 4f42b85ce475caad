// The relay's log: formatting of a line.
#include "relay/base/log.h"

#include <cstdio>
#include <ctime>

namespace vlk::relay {

LogSink standard_error_sink() {
  return [](std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
  };
}

std::string one_line(std::string_view text) {
  std::string result(text.substr(0, 400));
  for (char& c : result) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  return result;
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
