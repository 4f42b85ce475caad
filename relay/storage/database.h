// A thin layer over SQLite: statements with bound values, transactions, and errors as exceptions.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "relay/base/bytes.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vlk::relay {

// A failure of the database, with SQLite's message. Uncommitted changes are not stored.
struct DatabaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Database {
 public:
  // Opens the file, or creates it with mode 0600. Uses a write-ahead log, foreign keys and full
  // synchronisation, so that a committed row survives a crash and a power failure. Throws DatabaseError.
  explicit Database(const std::string& file);

  // Runs statements that have no bound values and no results. Throws DatabaseError.
  void execute(const char* sql);

 private:
  friend class Statement;
  struct Close {
    void operator()(sqlite3* handle) const;
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

// One prepared statement. Each bind() sets the next parameter, from left to right; columns are numbered from
// 0. All functions throw DatabaseError.
class Statement {
 public:
  Statement(Database& database, const char* sql);

  Statement& bind(std::string_view text);
  Statement& bind(std::int64_t number);
  Statement& bind(const Bytes& bytes);

  bool step();  // executes the statement up to its next row; false if there is none
  void run();   // executes the statement to its end
  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] std::int64_t number(int column) const;
  [[nodiscard]] Bytes bytes(int column) const;

 private:
  void check(int result) const;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  sqlite3* handle_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int next_ = 1;
};

// A transaction that is rolled back on destruction unless it was committed.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace vlk::relay
