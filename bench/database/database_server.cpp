// Starts the server by the tools of the tests, and reads the files that the system has about its processes.
#include "database_server.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "process.h"

namespace vantelink_bench {
namespace {

bool run_tool(const std::string& verb, const std::filesystem::path& folder) {
  const std::string program = std::string(VANTELINK_SOURCE_DIR) + "/tests/tools/postgresql-server";
  const std::string command = program + ' ' + verb + ' ' + folder.string();
  return std::system(command.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace

DatabaseServer::DatabaseServer(std::filesystem::path folder) : folder_(std::move(folder)) {
  if (!run_tool("start", folder_)) throw std::runtime_error("no PostgreSQL server starts");
  url_ = content(folder_ / "url");
  port_ = content(folder_ / "port");
  find_process();
}

void DatabaseServer::find_process() {
  pid_ = static_cast<pid_t>(std::stol(content(content(folder_ / "data") + "/postmaster.pid")));
}

void DatabaseServer::crash_and_restart() {
  if (!run_tool("kill", folder_) || !run_tool("restart", folder_))
    throw std::runtime_error("the PostgreSQL server does not start again");
  find_process();
}

DatabaseServer::~DatabaseServer() {
  (void)run_tool("stop", folder_);
}

// The first line of a file.
std::string DatabaseServer::content(const std::filesystem::path& file) const {
  std::ifstream stream(file);
  std::string line;
  if (!std::getline(stream, line)) throw std::runtime_error("cannot read " + file.string());
  return line;
}

double DatabaseServer::processor() const {
  const std::string pid = std::to_string(pid_);
  double seconds = vantelink_bench::processor(pid_);
  std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
  for (pid_t child = 0; children >> child;)
    seconds += vantelink_bench::processor(child);
  return seconds;
}

WrittenLog written_log(vlk::relay::Database& database) {
  vlk::relay::Statement query(
      database,
      "SELECT pg_wal_lsn_diff(pg_current_wal_lsn(), '0/0')::bigint, (SELECT wal_sync FROM pg_stat_wal)");
  if (!query.step()) throw std::runtime_error("the server does not say what it has written");
  return {query.number(0), query.number(1)};
}

}  // namespace vantelink_bench
