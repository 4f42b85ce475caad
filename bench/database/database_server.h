// A PostgreSQL server of its own for a benchmark, and what it uses.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "relay/storage/database.h"

namespace vantelink_bench {

// The server has its default settings and waits for the disk at each commit. Its data is removed at the end.
class DatabaseServer {
 public:
  // `folder` gets the files with which the server is found again. Throws std::runtime_error.
  explicit DatabaseServer(std::filesystem::path folder);
  ~DatabaseServer();
  DatabaseServer(const DatabaseServer&) = delete;
  DatabaseServer& operator=(const DatabaseServer&) = delete;

  [[nodiscard]] const std::string& url() const { return url_; }
  [[nodiscard]] const std::string& port() const { return port_; }
  // Ends the server as a crash does, and starts it again. Throws std::runtime_error.
  void crash_and_restart();
  // The time that all processes of the server have used a processor so far, in seconds. The time of processes
  // that have ended is missing. Throws std::runtime_error.
  [[nodiscard]] double processor() const;

 private:
  void find_process();
  [[nodiscard]] std::string content(const std::filesystem::path& file) const;

  const std::filesystem::path folder_;
  std::string url_;
  std::string port_;
  pid_t pid_ = 0;
};

// What a server has written to its write-ahead log since its start.
struct WrittenLog {
  std::int64_t bytes = 0;
  std::int64_t syncs = 0;  // waits for the disk; the server may count one up to a second late
};
[[nodiscard]] WrittenLog written_log(vlk::relay::Database& database);

}  // namespace vantelink_bench
