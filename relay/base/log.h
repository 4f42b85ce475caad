// The relay's log: one line an event, with time, peer, agent and what happened. Secrets are never passed to
// it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vlk::relay {

// Takes one finished line without its line end.
using LogSink = std::function<void(std::string_view)>;

// The sink that writes to standard error.
LogSink standard_error_sink();

// `text` with every control byte replaced by a blank, so that what a peer sends cannot forge a second line.
std::string one_line(std::string_view text);

class Log {
 public:
  explicit Log(LogSink sink) : sink_(std::move(sink)) {}

  // `peer` is the address with port, `agent` the agent id; either may be empty. Called on the relay's thread
  // alone.
  void write(std::string_view peer, std::string_view agent, std::string_view text) const;

 private:
  LogSink sink_;
};

}  // namespace vlk::relay
