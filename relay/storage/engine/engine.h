// What a database engine does for the relay: statements with bound values, transactions, and news of changes.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "relay/base/bytes.h"

namespace vlk::relay {

// A failure of the database, with the engine's message. Uncommitted changes are not stored.
struct DatabaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The connection to the database's server is lost. Whether a transaction was stored whose commit was under
// way is known after Engine::reconnect().
struct DatabaseLost : DatabaseError {
  using DatabaseError::DatabaseError;
};

// One statement. Parameters are numbered from 1 and columns from 0. All functions throw DatabaseError.
class EngineQuery {
 public:
  EngineQuery() = default;
  virtual ~EngineQuery() = default;
  EngineQuery(const EngineQuery&) = delete;
  EngineQuery& operator=(const EngineQuery&) = delete;

  virtual void bind_text(int parameter, std::string_view text) = 0;
  virtual void bind_number(int parameter, std::int64_t number) = 0;
  virtual void bind_bytes(int parameter, const Bytes& bytes) = 0;
  virtual void bind_null(int parameter) = 0;
  // Makes the statement ready for new values.
  virtual void reset() = 0;
  // Executes the statement up to its next row; false if there is none.
  virtual bool step() = 0;
  [[nodiscard]] virtual bool is_null(int column) const = 0;
  [[nodiscard]] virtual std::string text(int column) const = 0;
  [[nodiscard]] virtual std::int64_t number(int column) const = 0;
  [[nodiscard]] virtual Bytes bytes(int column) const = 0;
};

// Which words of SQL the engine has.
enum class Dialect { Sqlite, Postgresql };

// A connection to a database. Used by one thread at a time. All functions throw DatabaseError, except where
// noted.
class Engine {
 public:
  Engine() = default;
  virtual ~Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  [[nodiscard]] virtual Dialect dialect() const = 0;  // throws nothing
  // Prepares a statement whose parameters are written as question marks.
  [[nodiscard]] virtual std::unique_ptr<EngineQuery> prepare(const char* sql) = 0;
  // Runs statements that have no bound values and no results.
  virtual void execute(const char* sql) = 0;

  // The number of rows that the last INSERT, UPDATE or DELETE changed. Throws nothing.
  [[nodiscard]] virtual std::int64_t changes() const = 0;
  // The number that the last INSERT gave to its row.
  [[nodiscard]] virtual std::int64_t last_id() = 0;

  // Begins a transaction that does not overlap with another one of this kind, of whatever process or relay.
  virtual void begin_writing() = 0;
  // Begins a transaction whose statements all see the same rows and change none.
  virtual void begin_reading() = 0;
  virtual void commit() = 0;
  // True between the beginning and the end of a transaction. An engine ends a transaction itself after some
  // errors, for instance when the disk is full or the connection is lost. Throws nothing.
  [[nodiscard]] virtual bool in_transaction() const = 0;

  // Lets every later statement that changes something fail. A connection that is lost then connects again by
  // itself.
  virtual void forbid_changes() = 0;
  // The version of the tables; 0 if there are none.
  [[nodiscard]] virtual std::int64_t version() = 0;
  virtual void set_version(std::int64_t version) = 0;
  // Whether another connection has changed something since the last call of this function. With PostgreSQL,
  // only what the triggers of the tables report counts.
  [[nodiscard]] virtual bool changed_elsewhere() = 0;

  // What other connections have reported since the last call about machines that came and went; see
  // storage/cluster/. Only PostgreSQL has such reports.
  [[nodiscard]] virtual std::vector<std::string> take_reports() { return {}; }

  // Whether the connection is lost. Throws nothing.
  [[nodiscard]] virtual bool lost() const { return false; }
  // Connects again. Throws DatabaseLost if that is not possible now.
  virtual void reconnect() {}
  // After reconnect(): whether the transaction is stored whose commit() the loss cut off. Throws DatabaseLost
  // if that is not known yet.
  [[nodiscard]] virtual bool last_commit_stored() { return false; }
};

}  // namespace vlk::relay
