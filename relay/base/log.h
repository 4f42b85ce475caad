// The relay's log: one line for each event, with time, peer, agent and what happened. Callers never pass
// secrets. The lines of each source and kind are counted, so that no peer can fill the log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "relay/base/clock.h"

namespace vlk::relay {

// Receives one finished line without its line break.
using LogSink = std::function<void(std::string_view)>;

// The sink that writes to standard error.
[[nodiscard]] LogSink standard_error_sink();

// Returns at most 400 bytes of `text`, with a space in place of each control character, so that a peer's text
// cannot add a forged line to the log.
[[nodiscard]] std::string one_line(std::string_view text);

// How a line is written: as words, or as a JSON object with the members time, peer, agent and text. In JSON a
// missing peer or agent is empty, and whatever is not a printable ASCII character is escaped.
enum class LogFormat { Text, JsonLines };

// The format with this name, "text" or "json"; nothing for another name.
[[nodiscard]] std::optional<LogFormat> log_format_of(std::string_view name);

class Log {
 public:
  // Lines of one source and kind that are written within the window; further ones are only counted.
  struct Rate {
    std::size_t lines = 20;
    std::chrono::seconds window{60};
    std::size_t keys = 10'000;  // sources and kinds that are counted at a time
  };

  explicit Log(LogSink sink) : Log(std::move(sink), Rate{}) {}
  Log(LogSink sink, Rate rate, LogFormat format = LogFormat::Text)
      : sink_(std::move(sink)), rate_(rate), format_(format) {}

  // Writes one line. `peer` is the address with port, `agent` the agent's id; either may be empty. Lines
  // without a peer are not limited. To be called by one thread at a time.
  void write(std::string_view peer, std::string_view agent, std::string_view text) const;
  // Writes how many lines were left out in each window that is over. To be called from time to time.
  void end_windows(Clock::time_point now) const;

  // Lines that were written, and lines that were only counted.
  [[nodiscard]] std::uint64_t lines() const { return lines_; }
  [[nodiscard]] std::uint64_t left_out() const { return left_out_; }

 private:
  struct Count {
    Clock::time_point begin;
    std::size_t lines = 0;
  };
  // Counts a line. Returns whether it is to be written.
  [[nodiscard]] bool count(std::string_view peer, std::string_view text) const;
  void write_line(std::string_view peer, std::string_view agent, std::string_view text) const;
  void write_left_out(const std::pair<std::string, std::string>& key, const Count& count) const;

  LogSink sink_;
  Rate rate_;
  LogFormat format_;
  mutable std::map<std::pair<std::string, std::string>, Count> counts_;  // by source and kind
  mutable std::size_t uncounted_ = 0;  // lines that were left out because counts_ was full
  mutable Clock::time_point checked_{};
  mutable std::uint64_t lines_ = 0;
  mutable std::uint64_t left_out_ = 0;
};

}  // namespace vlk::relay
