// The relay's log: one line for each event, with time, peer, agent and what happened. Callers never pass
// secrets.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace vlk::relay {

// Receives one finished line without its line break.
using LogSink = std::function<void(std::string_view)>;

// The sink that writes to standard error.
[[nodiscard]] LogSink standard_error_sink();

// Returns at most 400 bytes of `text`, with a space in place of each control character, so that a peer's text
// cannot add a forged line to the log.
[[nodiscard]] std::string one_line(std::string_view text);

class Log {
 public:
  explicit Log(LogSink sink) : sink_(std::move(sink)) {}

  // Writes one line. `peer` is the address with port, `agent` the agent's id; either may be empty. To be
  // called by one thread at a time.
  void write(std::string_view peer, std::string_view agent, std::string_view text) const;

 private:
  LogSink sink_;
};

}  // namespace vlk::relay
