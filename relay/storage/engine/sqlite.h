// SQLite: a database in one file, which several processes of this machine can use.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "relay/storage/engine/engine.h"

struct sqlite3;

namespace vlk::relay {

class SqliteEngine : public Engine {
 public:
  // How a file is opened.
  enum class Mode {
    // Created with mode 0600 if it is missing. Uses a write-ahead log, foreign keys and full synchronisation,
    // so that a committed row survives a crash and a power failure.
    Normal,
    ReadOnly,    // an existing file, which this connection cannot change
    Unchanging,  // the same for a file that no process changes meanwhile; no file is made beside it
    // An existing file that only this process uses: a copy that is thrown away if it does not become
    // complete,
    // so a crash may damage it.
    Draft,
  };
  // Throws DatabaseError.
  SqliteEngine(const std::string& file, Mode mode);

  // Replaces the content of `target` by the state that this database has now. Other connections can read and
  // write meanwhile, and what they write is not copied. `pause` is called after every 256 pages, so that the
  // copying leaves the disk to others. Throws DatabaseError.
  void copy_to(SqliteEngine& target, const std::function<void()>& pause);

  [[nodiscard]] Dialect dialect() const override { return Dialect::Sqlite; }
  [[nodiscard]] std::unique_ptr<EngineQuery> prepare(const char* sql) override;
  void execute(const char* sql) override;
  [[nodiscard]] std::int64_t changes() const override;
  [[nodiscard]] std::int64_t last_id() override;
  void begin_writing() override { execute("BEGIN IMMEDIATE"); }
  void begin_reading() override { execute("BEGIN"); }
  void commit() override { execute("COMMIT"); }
  [[nodiscard]] bool in_transaction() const override;
  void forbid_changes() override { execute("PRAGMA query_only = ON"); }
  [[nodiscard]] std::int64_t version() override;
  void set_version(std::int64_t version) override;
  [[nodiscard]] bool changed_elsewhere() override;

 private:
  struct Close {
    void operator()(sqlite3* handle) const;
  };
  [[nodiscard]] std::int64_t number(const char* query);

  std::unique_ptr<sqlite3, Close> handle_;
  std::int64_t data_version_ = 0;  // counts other connections' changes
};

}  // namespace vlk::relay
