// Finds the tests' server, and makes a schema for each folder.
#include "relay/storage/test_database.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace vlk::relay {

std::string test_server() {
  // Read by tests before they start threads of their own.
  const char* variable = std::getenv("VANTELINK_TEST_POSTGRESQL");  // NOLINT(concurrency-mt-unsafe)
  std::string server = variable ? variable : "";
  if (!server.starts_with('@')) return server;
  std::ifstream file(server.substr(1));
  if (!std::getline(file, server)) throw std::runtime_error("no PostgreSQL server has written " + server);
  return server;
}

std::string database_in(const std::filesystem::path& folder) {
  const std::string server = test_server();
  if (server.empty()) return (folder / "relay.db").string();
  std::string schema = "test";
  for (const char c : folder.string())
    schema += std::isalnum(static_cast<unsigned char>(c)) != 0 ? static_cast<char>(std::tolower(c)) : '_';
  Database(server).execute(("CREATE SCHEMA IF NOT EXISTS " + schema).c_str());
  return server + "?options=-csearch_path%3D" + schema;
}

bool run_test_server(const std::string& verb, const std::filesystem::path& folder) {
  const std::string program = std::string(VANTELINK_SOURCE_DIR) + "/tests/tools/postgresql-server";
  return std::system((program + ' ' + verb + ' ' + folder.string()).c_str()) ==
         0;  // NOLINT(concurrency-mt-unsafe)
}

void drop_trail_triggers(Database& database) {
  const bool on_server = database.dialect() == Dialect::Postgresql;
  if (on_server) {
    database.execute(
        "DROP TRIGGER IF EXISTS trail_kept ON trail; DROP TRIGGER IF EXISTS trail_anchor_kept ON "
        "trail_anchor; "
        "DROP TRIGGER IF EXISTS trail_head_kept ON trail_heads");
    return;
  }
  for (const char* trigger : {"trail_changed", "trail_removed", "trail_follows", "trail_anchor_kept",
                              "trail_head_changed", "trail_head_removed"}) {
    database.execute(("DROP TRIGGER IF EXISTS " + std::string(trigger)).c_str());
  }
}

}  // namespace vlk::relay
