// Calls SQLite and turns its errors into exceptions.
#include "relay/storage/engine/sqlite.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sqlite3.h>

namespace vlk::relay {
namespace {

constexpr int kBusyTimeoutMs = 5000;
constexpr int kPagesPerStep = 256;

// Creates the file with mode 0600; left to SQLite, the mode would depend on the process's umask. SQLite gives
// the file of its write-ahead log the same mode.
//
// A file that exists is not opened: to close any descriptor of it releases the locks that SQLite holds on it
// for the other connections of this process. The next process that used the file would then take itself for
// the last one and delete the write-ahead log, and with it what is committed afterwards.
void create_private_file(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor >= 0) {
    ::close(descriptor);
  } else if (errno != EEXIST) {
    throw DatabaseError("Cannot open " + file + ": " + std::strerror(errno));
  }
}

// The file's URI, with which SQLite takes no locks.
std::string unchanging_uri(const std::string& file) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string uri = "file:";
  for (const char c : file) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || c == '/' || c == '.' || c == '-' || c == '_') {
      uri += c;
    } else {
      uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return uri + "?immutable=1";
}

class SqliteQuery : public EngineQuery {
 public:
  SqliteQuery(sqlite3* handle, const char* sql) : handle_(handle) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr));
    statement_.reset(statement);
  }
  void bind_text(int parameter, std::string_view text) override {
    check(sqlite3_bind_text64(statement_.get(), parameter, text.data() ? text.data() : "", text.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
  }
  void bind_number(int parameter, std::int64_t number) override {
    check(sqlite3_bind_int64(statement_.get(), parameter, number));
  }
  void bind_bytes(int parameter, const Bytes& bytes) override {
    // A null pointer would be stored as NULL, which equals nothing in a comparison.
    const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    check(sqlite3_bind_blob64(statement_.get(), parameter, data, bytes.size(), SQLITE_TRANSIENT));
  }
  void bind_null(int parameter) override { check(sqlite3_bind_null(statement_.get(), parameter)); }
  void reset() override { sqlite3_reset(statement_.get()); }

  bool step() override {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) check(result);
    return false;
  }
  [[nodiscard]] bool is_null(int column) const override {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
  }
  [[nodiscard]] std::string text(int column) const override {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return data ? std::string(data, size) : std::string();
  }
  [[nodiscard]] std::int64_t number(int column) const override {
    return sqlite3_column_int64(statement_.get(), column);
  }
  [[nodiscard]] Bytes bytes(int column) const override {
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return data ? Bytes(data, data + size) : Bytes();
  }

 private:
  void check(int result) const {
    if (result != SQLITE_OK)
      throw DatabaseError(std::string("The database failed: ") + sqlite3_errmsg(handle_));
  }
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  sqlite3* handle_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace

void SqliteEngine::Close::operator()(sqlite3* handle) const {
  sqlite3_close_v2(handle);
}

SqliteEngine::SqliteEngine(const std::string& file, Mode mode) {
  if (mode == Mode::Normal) create_private_file(file);
  const bool writes = mode == Mode::Normal || mode == Mode::Draft;
  const bool unchanging = mode == Mode::Unchanging;
  const int flags =
      (writes ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | (unchanging ? SQLITE_OPEN_URI : 0);
  sqlite3* handle = nullptr;
  const int result =
      sqlite3_open_v2((unchanging ? unchanging_uri(file) : file).c_str(), &handle, flags, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) throw DatabaseError("Cannot open " + file + ": " + sqlite3_errstr(result));
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  if (mode == Mode::Draft) execute("PRAGMA synchronous=OFF");
  if (mode != Mode::Normal) return;
  execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;");
  data_version_ = number("PRAGMA data_version");
}

void SqliteEngine::copy_to(SqliteEngine& target, const std::function<void()>& pause) {
  // Without a transaction of its own the copying would begin again whenever another process has written.
  execute("BEGIN; SELECT 1 FROM sqlite_schema");
  sqlite3* const goal = target.handle_.get();
  sqlite3_backup* const backup = sqlite3_backup_init(goal, "main", handle_.get(), "main");
  int result = backup ? SQLITE_OK : sqlite3_errcode(goal);
  while (result == SQLITE_OK) {
    result = sqlite3_backup_step(backup, kPagesPerStep);
    if (result == SQLITE_OK) pause();
  }
  if (backup) sqlite3_backup_finish(backup);
  execute("COMMIT");
  if (result != SQLITE_DONE)
    throw DatabaseError(std::string("The database could not be copied: ") + sqlite3_errstr(result));
}

std::unique_ptr<EngineQuery> SqliteEngine::prepare(const char* sql) {
  return std::make_unique<SqliteQuery>(handle_.get(), sql);
}

void SqliteEngine::execute(const char* sql) {
  if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw DatabaseError(std::string("The database failed: ") + sqlite3_errmsg(handle_.get()));
  }
}

std::int64_t SqliteEngine::changes() const {
  return sqlite3_changes64(handle_.get());
}

std::int64_t SqliteEngine::last_id() {
  return sqlite3_last_insert_rowid(handle_.get());
}

bool SqliteEngine::in_transaction() const {
  return sqlite3_get_autocommit(handle_.get()) == 0;
}

std::int64_t SqliteEngine::version() {
  return number("PRAGMA user_version");
}

void SqliteEngine::set_version(std::int64_t version) {
  execute(("PRAGMA user_version = " + std::to_string(version)).c_str());
}

bool SqliteEngine::changed_elsewhere() {
  const std::int64_t version = number("PRAGMA data_version");
  return std::exchange(data_version_, version) != version;
}

std::int64_t SqliteEngine::number(const char* query) {
  SqliteQuery statement(handle_.get(), query);
  statement.step();
  return statement.number(0);
}

}  // namespace vlk::relay
