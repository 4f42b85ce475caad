// A thin layer over SQLite: statements with bound values, transactions, and errors as exceptions.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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

  // Opens an existing file, which this connection cannot change. Throws DatabaseError.
  [[nodiscard]] static Database read_only(const std::string& file);

  // The same for a file that no process changes meanwhile. No file is made beside it. Throws DatabaseError.
  [[nodiscard]] static Database unchanging(const std::string& file);

  // Opens an existing file that only this process uses, as it is: for a copy that is thrown away if it does
  // not become complete, so a crash may damage it. Throws DatabaseError.
  [[nodiscard]] static Database draft(const std::string& file);

  // Replaces the content of `target` by the state that this database has now. Other connections can read and
  // write meanwhile, and what they write is not copied. `pause` is called after every 256 pages, so that the
  // copying leaves the disk to others. Throws DatabaseError.
  void copy_to(Database& target, const std::function<void()>& pause);

  // Runs statements that have no bound values and no results. Throws DatabaseError.
  void execute(const char* sql);

  // The number of rows that the last INSERT, UPDATE or DELETE changed.
  [[nodiscard]] std::int64_t changes() const;
  // The number that the last INSERT gave to its row.
  [[nodiscard]] std::int64_t last_id() const;
  // The path of the database's file.
  [[nodiscard]] std::string file() const;
  // True between BEGIN and COMMIT. SQLite ends a transaction itself after some errors, for instance when the
  // disk is full.
  [[nodiscard]] bool in_transaction() const;

 private:
  friend class Statement;
  Database() = default;
  [[nodiscard]] static Database open(const std::string& file, int flags);
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
  Statement& bind_null();
  // Binds the number, or NULL if there is none.
  Statement& bind(const std::optional<std::int64_t>& number);
  Statement& bind(int number) { return bind(std::int64_t{number}); }
  Statement& bind(bool flag) { return bind(std::int64_t{flag}); }
  Statement& bind(const char* text) { return bind(std::string_view(text)); }
  Statement& bind(const std::string& text) { return bind(std::string_view(text)); }
  // Makes the statement ready for new values.
  void reset();

  bool step();  // executes the statement up to its next row; false if there is none
  void run();   // executes the statement to its end
  [[nodiscard]] bool is_null(int column) const;
  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] std::int64_t number(int column) const;
  [[nodiscard]] Bytes bytes(int column) const;
  [[nodiscard]] std::optional<std::int64_t> optional_number(int column) const;

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
