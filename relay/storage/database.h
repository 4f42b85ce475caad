// The relay's database, a file of SQLite or a schema of a PostgreSQL server: statements with bound values,
// transactions, and errors as exceptions.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "relay/base/bytes.h"
#include "relay/storage/engine/address.h"
#include "relay/storage/engine/engine.h"

namespace vlk::relay {

class Database {
 public:
  // Opens the file or the URL. A file that is missing is created with mode 0600. Throws DatabaseError.
  explicit Database(const std::string& address);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  Database(Database&&) noexcept;
  Database& operator=(Database&&) noexcept;

  // Opens an existing database, which this connection cannot change. Throws DatabaseError.
  [[nodiscard]] static Database read_only(const std::string& address);
  // The same for a file that no process changes meanwhile. No file is made beside it. Throws DatabaseError.
  [[nodiscard]] static Database unchanging(const std::string& file);
  // Opens an existing file that only this process uses, as it is: for a copy that is thrown away if it does
  // not become complete, so a crash may damage it. Throws DatabaseError.
  [[nodiscard]] static Database draft(const std::string& file);

  // Replaces the content of the file `target` by the state that this file has now. Other connections can read
  // and write meanwhile, and what they write is not copied. `pause` is called after every 256 pages, so that
  // the copying leaves the disk to others. Throws DatabaseError, also if one of the two is not a file.
  void copy_to(Database& target, const std::function<void()>& pause);

  // Runs statements that have no bound values and no results. Throws DatabaseError.
  void execute(const char* sql) { engine_->execute(sql); }
  // Runs statements that define tables, written with the types of SQLite; another engine gets its own types.
  void define(std::string sql);

  // The number of rows that the last INSERT, UPDATE or DELETE changed.
  [[nodiscard]] std::int64_t changes() const { return engine_->changes(); }
  // The number that the last INSERT gave to its row. Throws DatabaseError.
  [[nodiscard]] std::int64_t last_id() { return engine_->last_id(); }
  // The path of the file, or the URL.
  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] Engine& engine() { return *engine_; }
  [[nodiscard]] Dialect dialect() const { return engine_->dialect(); }

 private:
  friend class Statement;
  Database(std::string address, std::unique_ptr<Engine> engine);

  std::string address_;
  std::unique_ptr<Engine> engine_;
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
  [[nodiscard]] bool is_null(int column) const { return query_->is_null(column); }
  [[nodiscard]] std::string text(int column) const { return query_->text(column); }
  [[nodiscard]] std::int64_t number(int column) const { return query_->number(column); }
  [[nodiscard]] Bytes bytes(int column) const { return query_->bytes(column); }
  [[nodiscard]] std::optional<std::int64_t> optional_number(int column) const;

 private:
  std::unique_ptr<EngineQuery> query_;
  int next_ = 1;
};

// A transaction that writes, rolled back on destruction unless it was committed.
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

// A transaction that reads: all its statements see the same rows.
class Snapshot {
 public:
  explicit Snapshot(Database& database);
  ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

 private:
  Database& database_;
};

}  // namespace vlk::relay
