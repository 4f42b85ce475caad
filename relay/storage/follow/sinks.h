// Where the rows of the trail are copied to for log collectors: a file of JSON lines, and syslog.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {

// Used on one thread.
class TrailSink {
 public:
  TrailSink() = default;
  TrailSink(const TrailSink&) = delete;
  TrailSink& operator=(const TrailSink&) = delete;
  virtual ~TrailSink() = default;
  // The last row that the sink has, without its time; its id is 0 if the sink has none. Nothing if the sink
  // cannot know.
  [[nodiscard]] virtual std::optional<TrailEnd> last_row() = 0;
  // Throws std::runtime_error with a sentence; then the row is given again later.
  virtual void write(const TrailRow& row) = 0;
  // Opens the file again, because another program has moved it.
  virtual void reopen() = 0;
};

// A file of JSON lines, mode 0600. When it reaches its size, it becomes FILE.1, FILE.1 becomes FILE.2, and so
// on.
class TrailLogFile : public TrailSink {
 public:
  struct Rotation {
    std::uint64_t bytes = std::uint64_t{64} << 20;
    unsigned keep = 8;  // files besides the one that is being written
  };
  TrailLogFile(std::string file, Rotation rotation) : file_(std::move(file)), rotation_(rotation) {}
  explicit TrailLogFile(std::string file) : TrailLogFile(std::move(file), Rotation{}) {}
  ~TrailLogFile() override;
  TrailLogFile(const TrailLogFile&) = delete;
  TrailLogFile& operator=(const TrailLogFile&) = delete;

  [[nodiscard]] std::optional<TrailEnd> last_row() override;
  void write(const TrailRow& row) override;
  void reopen() override;

 private:
  void open();
  void rotate();

  const std::string file_;
  const Rotation rotation_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

// Syslog by RFC 5424, one datagram a row: to a socket of this host, or by UDP.
class TrailSyslog : public TrailSink {
 public:
  // `target` is the path of a socket, for instance /dev/log, or HOST:PORT. Throws std::runtime_error for
  // another form.
  explicit TrailSyslog(const std::string& target);
  ~TrailSyslog() override;
  TrailSyslog(const TrailSyslog&) = delete;
  TrailSyslog& operator=(const TrailSyslog&) = delete;

  [[nodiscard]] std::optional<TrailEnd> last_row() override { return std::nullopt; }
  void write(const TrailRow& row) override;
  void reopen() override;

 private:
  void connect();

  const std::string target_;
  std::string host_;  // empty for a socket of this host
  std::string port_;
  int socket_ = -1;
};

// A row as a syslog message, without a line break.
[[nodiscard]] std::string syslog_message(const TrailRow& row, const std::string& host);

}  // namespace vlk::relay
