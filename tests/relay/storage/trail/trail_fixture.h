// A trail in a database of its own, for the tests of this folder.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "relay/base/secrets.h"
#include "relay/storage/test_database.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/key.h"
#include "relay/storage/trail/tables.h"
#include "support/temp_folder.h"

namespace vlk::relay {

class TrailTest : public testing::Test {
 protected:
  TrailTest() {
    start_sodium();
    folder = std::make_unique<vantelink_test::TempFolder>();
    file = database_in(folder->path());
    database.emplace(file);
    Transaction transaction(*database);
    create_trail(*database);
    transaction.commit();
    key.emplace(TrailKey::load_or_make(folder->path().string()));
  }

  void append(const std::vector<TrailEntry>& entries) {
    Transaction transaction(*database);
    append_trail(*database, entries);
    transaction.commit();
  }

  void sign() {
    Transaction transaction(*database);
    sign_head(*database, *key);
    transaction.commit();
  }

  // Changes the tables behind the triggers' back, as somebody with access to the file can.
  void tamper(const std::string& sql) {
    drop_trail_triggers(*database);
    database->execute(sql.c_str());
  }

  std::vector<TrailRow> rows() {
    std::vector<TrailRow> result;
    Statement query(*database, ("SELECT " + std::string(kTrailColumns) + " FROM trail ORDER BY id").c_str());
    while (query.step())
      result.push_back(read_trail_row(query));
    return result;
  }

  std::unique_ptr<vantelink_test::TempFolder> folder;
  std::string file;
  std::optional<Database> database;
  std::optional<TrailKey> key;
};

}  // namespace vlk::relay
