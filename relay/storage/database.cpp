// Calls SQLite and turns its errors into exceptions.
#include "relay/storage/database.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

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

}  // namespace

void Database::Close::operator()(sqlite3* handle) const {
  sqlite3_close_v2(handle);
}

Database::Database(const std::string& file) {
  create_private_file(file);
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) throw DatabaseError("Cannot open " + file + ": " + sqlite3_errstr(result));
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;");
}

Database Database::open(const std::string& file, int flags) {
  Database database;
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
  database.handle_.reset(handle);
  if (result != SQLITE_OK) throw DatabaseError("Cannot open " + file + ": " + sqlite3_errstr(result));
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  return database;
}

Database Database::read_only(const std::string& file) {
  return open(file, SQLITE_OPEN_READONLY);
}

Database Database::unchanging(const std::string& file) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string address = "file:";
  for (const char c : file) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || c == '/' || c == '.' || c == '-' || c == '_') {
      address += c;
    } else {
      address += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return open(address + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

Database Database::draft(const std::string& file) {
  Database database = open(file, SQLITE_OPEN_READWRITE);
  database.execute("PRAGMA synchronous=OFF");
  return database;
}

void Database::copy_to(Database& target, const std::function<void()>& pause) {
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

void Database::execute(const char* sql) {
  if (sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw DatabaseError(std::string("The database failed: ") + sqlite3_errmsg(handle_.get()));
  }
}

std::int64_t Database::changes() const {
  return sqlite3_changes64(handle_.get());
}

std::int64_t Database::last_id() const {
  return sqlite3_last_insert_rowid(handle_.get());
}

std::string Database::file() const {
  return sqlite3_db_filename(handle_.get(), "main");
}

bool Database::in_transaction() const {
  return sqlite3_get_autocommit(handle_.get()) == 0;
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Statement::Statement(Database& database, const char* sql) : handle_(database.handle_.get()) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr));
  statement_.reset(statement);
}

Statement& Statement::bind(std::string_view text) {
  check(sqlite3_bind_text64(statement_.get(), next_++, text.data() ? text.data() : "", text.size(),
                            SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

Statement& Statement::bind(std::int64_t number) {
  check(sqlite3_bind_int64(statement_.get(), next_++, number));
  return *this;
}

Statement& Statement::bind(const Bytes& bytes) {
  // A null pointer would be stored as NULL, which equals nothing in a comparison.
  const void* data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
  check(sqlite3_bind_blob64(statement_.get(), next_++, data, bytes.size(), SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::bind_null() {
  check(sqlite3_bind_null(statement_.get(), next_++));
  return *this;
}

Statement& Statement::bind(const std::optional<std::int64_t>& number) {
  return number ? bind(*number) : bind_null();
}

void Statement::reset() {
  sqlite3_reset(statement_.get());
  next_ = 1;
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) check(result);
  return false;
}

void Statement::run() {
  while (step()) {
  }
}

bool Statement::is_null(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::string Statement::text(int column) const {
  const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return data ? std::string(data, size) : std::string();
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

Bytes Statement::bytes(int column) const {
  const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return data ? Bytes(data, data + size) : Bytes();
}

std::optional<std::int64_t> Statement::optional_number(int column) const {
  if (is_null(column)) return std::nullopt;
  return number(column);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK)
    throw DatabaseError(std::string("The database failed: ") + sqlite3_errmsg(handle_));
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (!open_) return;
  try {
    database_.execute("ROLLBACK");
  } catch (const DatabaseError&) {
    // The ROLLBACK fails if SQLite has rolled back by itself, for instance because the disk is full.
  }
}

void Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

}  // namespace vlk::relay
