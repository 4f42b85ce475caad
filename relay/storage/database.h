// A thin owner of an SQLite connection: statements with bound values, transactions, and errors as exceptions.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vlk::relay {

// Any failure of the database, with SQLite's own words. What was not committed is not stored.
struct DatabaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Database {
 public:
  // Opens or creates the file, mode 0600, with write-ahead log, foreign keys and full synchronisation, so
  // that a committed row survives the end of the process and of the machine's power. Throws DatabaseError.
  explicit Database(const std::string& file);

  // Runs statements without values or results.
  void execute(const char* sql);

 private:
  friend class Statement;
  struct Close {
    void operator()(sqlite3* handle) const;
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

// One prepared statement. Values are bound in order from the left, columns are counted from 0.
class Statement {
 public:
  Statement(Database& database, const char* sql);

  Statement& bind(std::string_view text);
  Statement& bind(std::int64_t number);
  Statement& bind(const std::vector<std::uint8_t>& bytes);

  bool step();  // true while there is a row
  void run();   // steps to the end
  std::string text(int column) const;
  std::int64_t number(int column) const;
  std::vector<std::uint8_t> bytes(int column) const;

 private:
  void check(int result) const;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  sqlite3* handle_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int next_ = 1;
};

// Rolls back at the end of its life unless committed.
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
