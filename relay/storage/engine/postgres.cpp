// Calls libpqxx and turns its errors into exceptions of the relay's own.
#include "relay/storage/engine/postgres.h"

#include <array>
#include <optional>
#include <pqxx/pqxx>
#include <unordered_map>
#include <utility>
#include <vector>

#include "relay/base/secrets.h"
#include "relay/storage/engine/address.h"
#include "relay/storage/engine/listener.h"
#include "relay/storage/engine/parameters.h"

namespace vlk::relay {
namespace {

// The server ends a connection that stays silent within a transaction, since its transaction holds up those
// of all other relays, and it notices a relay that is cut off as soon as the relay notices the server.
constexpr char kSession[] =
    "SET client_min_messages = warning; SET standard_conforming_strings = on; SET bytea_output = hex; "
    "SET idle_in_transaction_session_timeout = '10s'; SET lock_timeout = '10s'; SET tcp_keepalives_idle = 3; "
    "SET tcp_keepalives_interval = 1; SET tcp_keepalives_count = 3; SET tcp_user_timeout = 5000";
constexpr char kReadOnly[] = "SET default_transaction_read_only = on";
// Writing transactions of one schema wait for each other.
constexpr char kBeginWriting[] =
    "BEGIN; SELECT pg_advisory_xact_lock(hashtextextended('vantelink ' || current_schema(), 0))";
// Statements that stay prepared on the server.
constexpr std::size_t kPrepared = 250;

// The first line of a message of the server or of libpq.
std::string first_line(const char* message) {
  const std::string text(message);
  return text.substr(0, text.find('\n'));
}

// SQLSTATE classes of a server that ends or refuses connections.
bool is_end_of_connection(const std::string& state) {
  return state.starts_with("08") || state.starts_with("57P");
}

}  // namespace

struct PostgresEngine::Connection {
  explicit Connection(const std::string& url) : link(url) {
// libpqxx connects again by itself, in the middle of a transaction too, unless this function is called, which
// it has deprecated without a successor.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    link.inhibit_reactivation(true);
#pragma GCC diagnostic pop
  }
  // The name of the statement on the server.
  const std::string& prepared(const std::string& sql) {
    const auto known = names.find(sql);
    if (known != names.end()) return known->second;
    if (names.size() >= kPrepared) {
      for (const auto& entry : names)
        link.unprepare(entry.second);
      names.clear();
    }
    std::string name = 's' + std::to_string(++count);
    link.prepare(name, sql);
    return names[sql] = std::move(name);
  }

  pqxx::connection link;
  pqxx::quiet_errorhandler quiet{link};
  std::unordered_map<std::string, std::string> names;  // of prepared statements, by their texts
  std::size_t count = 0;
  std::optional<Listener> changes;   // the names of tables
  std::optional<Listener> presence;  // texts of store_presence()
};

class PostgresQuery : public EngineQuery {
 public:
  PostgresQuery(PostgresEngine& engine, const char* sql) : engine_(engine), sql_(with_numbers(sql)) {}

  void bind_text(int parameter, std::string_view text) override {
    if (text.find('\0') != std::string_view::npos)
      throw DatabaseError("The database cannot store a text with a null character.");
    place(parameter) = std::string(text);
  }
  void bind_number(int parameter, std::int64_t number) override { place(parameter) = std::to_string(number); }
  void bind_bytes(int parameter, const Bytes& bytes) override { place(parameter) = "\\x" + to_hex(bytes); }
  void bind_null(int parameter) override { place(parameter) = std::nullopt; }
  void reset() override {
    result_.reset();
    row_ = 0;
  }

  bool step() override {
    if (!result_) {
      result_ = engine_.run(sql_, values_);
    } else {
      ++row_;
    }
    return row_ < result_->size();
  }
  [[nodiscard]] bool is_null(int column) const override { return field(column).is_null(); }
  [[nodiscard]] std::string text(int column) const override {
    return {field(column).c_str(), field(column).size()};
  }
  [[nodiscard]] std::int64_t number(int column) const override { return field(column).as<std::int64_t>(0); }
  [[nodiscard]] Bytes bytes(int column) const override {
    const pqxx::binarystring data(field(column));
    return {data.begin(), data.end()};
  }

 private:
  std::optional<std::string>& place(int parameter) {
    const auto index = static_cast<std::size_t>(parameter) - 1;
    if (index >= values_.size()) values_.resize(index + 1);
    return values_[index];
  }
  [[nodiscard]] pqxx::field field(int column) const {
    return (*result_)[row_][static_cast<pqxx::row_size_type>(column)];
  }

  PostgresEngine& engine_;
  const std::string sql_;
  std::vector<std::optional<std::string>> values_;
  std::optional<pqxx::result> result_;
  pqxx::result_size_type row_ = 0;
};

PostgresEngine::PostgresEngine(std::string url) : url_(with_time_limits(std::move(url))) {
  connect();
}

PostgresEngine::~PostgresEngine() = default;

// Turns the errors of libpqxx into those of the relay.
template <class Function>
auto PostgresEngine::checked(Function function) -> decltype(function()) {
  try {
    return function();
  } catch (const pqxx::broken_connection& failure) {
    lose(first_line(failure.what()));
  } catch (const pqxx::sql_error& failure) {
    if (is_end_of_connection(failure.sqlstate()) || !connection_->link.is_open())
      lose(first_line(failure.what()));
    throw DatabaseError("The database failed: " + first_line(failure.what()));
  } catch (const std::exception& failure) {
    throw DatabaseError("The database failed: " + first_line(failure.what()));
  }
}

void PostgresEngine::connect() {
  try {
    connection_ = std::make_unique<Connection>(url_);
  } catch (const std::exception& failure) {
    throw DatabaseLost("Cannot connect to " + shown_address(url_) + ": " + first_line(failure.what()));
  }
  try {
    checked([&] {
      pqxx::nontransaction work(connection_->link);
      work.exec(kSession);
      if (reads_only_) work.exec(kReadOnly);
    });
  } catch (const DatabaseError&) {
    connection_.reset();
    throw;
  }
}

template <class Function>
auto PostgresEngine::guarded(Function function) -> decltype(function()) {
  // Nothing of a connection that only reads is lost with it.
  if (!connection_ && reads_only_) connect();
  if (!connection_) throw DatabaseLost("The database's server is not connected.");
  return checked(std::move(function));
}

void PostgresEngine::lose(const std::string& reason) {
  connection_.reset();
  in_transaction_ = false;
  throw DatabaseLost("The connection to the database's server is lost: " + reason);
}

pqxx::result PostgresEngine::run(const std::string& sql, const Values& values) {
  return guarded([&] {
    std::vector<const char*> texts;
    texts.reserve(values.size());
    for (const auto& value : values)
      texts.push_back(value ? value->c_str() : nullptr);
    const std::string& name = connection_->prepared(sql);
    pqxx::nontransaction work(connection_->link);
    pqxx::result result = work.exec_prepared(name, pqxx::prepare::make_dynamic_params(texts));
    changes_ = static_cast<std::int64_t>(result.affected_rows());
    return result;
  });
}

std::unique_ptr<EngineQuery> PostgresEngine::prepare(const char* sql) {
  return std::make_unique<PostgresQuery>(*this, sql);
}

void PostgresEngine::execute(const char* sql) {
  guarded([&] { pqxx::nontransaction(connection_->link).exec(sql); });
  // A transaction is begun by this class's functions only, and may be rolled back by any caller.
  if (std::string_view(sql) == "ROLLBACK") in_transaction_ = false;
}

std::string PostgresEngine::single_text(const char* sql) {
  return guarded([&] {
    const pqxx::result result = pqxx::nontransaction(connection_->link).exec(sql);
    return std::string(result.at(0).at(0).c_str());
  });
}

std::int64_t PostgresEngine::last_id() {
  return std::stoll(single_text("SELECT lastval()"));
}

void PostgresEngine::begin_writing() {
  committing_.clear();
  try {
    execute(kBeginWriting);
  } catch (const DatabaseLost&) {
    throw;
  } catch (const DatabaseError&) {
    execute("ROLLBACK");  // the transaction has begun without the lock
    throw;
  }
  in_transaction_ = true;
}

void PostgresEngine::begin_reading() {
  execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
  in_transaction_ = true;
}

// After an error within the transaction the first statement fails, because the server would answer a COMMIT
// by rolling back.
void PostgresEngine::commit() {
  committing_ = single_text("SELECT pg_current_xact_id_if_assigned()");
  execute("COMMIT");
  committing_.clear();
  in_transaction_ = false;
}

void PostgresEngine::forbid_changes() {
  execute(kReadOnly);
  reads_only_ = true;
}

std::int64_t PostgresEngine::version() {
  if (single_text("SELECT to_regclass('relay_schema')").empty()) return 0;
  return std::stoll(single_text("SELECT version FROM relay_schema"));
}

void PostgresEngine::set_version(std::int64_t version) {
  const std::string number = std::to_string(version);
  execute(("CREATE TABLE IF NOT EXISTS relay_schema(one BIGINT PRIMARY KEY CHECK(one = 1), version BIGINT "
           "NOT NULL);"
           "INSERT INTO relay_schema VALUES(1, " +
           number + ") ON CONFLICT(one) DO UPDATE SET version = " + number)
              .c_str());
}

void PostgresEngine::listen() {
  if (connection_ && !connection_->changes) {
    const std::string schema = single_text("SELECT md5(current_schema())");
    guarded([&] {
      connection_->changes.emplace(connection_->link, "vantelink_" + schema);
      connection_->presence.emplace(connection_->link, "vantelink_presence_" + schema);
    });
  }
  guarded([&] { connection_->link.get_notifs(); });
}

bool PostgresEngine::changed_elsewhere() {
  listen();
  const bool changed = !connection_->changes->take().empty();
  return std::exchange(reconnected_, false) || changed;
}

std::vector<std::string> PostgresEngine::take_reports() {
  listen();
  return connection_->presence->take();
}

bool PostgresEngine::lost() const {
  return !connection_;
}

void PostgresEngine::reconnect() {
  if (connection_) return;
  connect();
  reconnected_ = true;
}

bool PostgresEngine::last_commit_stored() {
  if (committing_.empty()) return false;
  std::string status;
  try {
    status = single_text(("SELECT pg_xact_status('" + committing_ + "')").c_str());
  } catch (const DatabaseLost&) {
    throw;
  } catch (const DatabaseError&) {
    // The server does not know the transaction: it has taken the place of another one, which had not passed
    // it on.
  }
  // The server has not noticed yet that the transaction's connection is lost.
  if (status == "in progress") throw DatabaseLost("The database's server still decides about a transaction.");
  committing_.clear();
  return status == "committed";
}

}  // namespace vlk::relay
