// Which database the tests use: a file of SQLite, or a schema of a PostgreSQL server for each folder.
#pragma once

#include <filesystem>
#include <string>

#include "relay/storage/database.h"

namespace vlk::relay {

// The URL of the tests' PostgreSQL server, or an empty text for SQLite. VANTELINK_TEST_POSTGRESQL has the
// URL, or
// "@" and the file in which it is.
[[nodiscard]] std::string test_server();
[[nodiscard]] inline bool uses_postgresql() {
  return !test_server().empty();
}

// The address of the database that belongs to the folder; the same for each call.
[[nodiscard]] std::string database_in(const std::filesystem::path& folder);

// Starts, stops, kills or restarts a server for one test, whose URL is in the file "url" of the folder.
// Returns false if that is not possible.
[[nodiscard]] bool run_test_server(const std::string& verb, const std::filesystem::path& folder);

// Removes what keeps the rows of the trail from being changed, as somebody who owns the database can.
void drop_trail_triggers(Database& database);

}  // namespace vlk::relay

// Ends a test that is about SQLite's files.
#define RELAY_SKIP_WITHOUT_SQLITE() \
  if (uses_postgresql()) GTEST_SKIP() << "This test is about SQLite's files."
