// PostgreSQL, by libpqxx: a database that many relays share.
//
// libpqxx is the C++ client library that the distribution packages. Its only rival there, SOCI, stores bytes
// as large objects, apart from their rows.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/storage/engine/engine.h"

namespace pqxx {
class result;
}

namespace vlk::relay {

class PostgresEngine : public Engine {
 public:
  // Connects to the URL. Unless the URL says otherwise, an attempt to connect may take 5 seconds, and a
  // server that has not answered the TCP connection for 10 seconds is taken for lost. Throws DatabaseError.
  explicit PostgresEngine(std::string url);
  ~PostgresEngine() override;
  PostgresEngine(const PostgresEngine&) = delete;
  PostgresEngine& operator=(const PostgresEngine&) = delete;

  [[nodiscard]] Dialect dialect() const override { return Dialect::Postgresql; }
  [[nodiscard]] std::unique_ptr<EngineQuery> prepare(const char* sql) override;
  void execute(const char* sql) override;
  [[nodiscard]] std::int64_t changes() const override { return changes_; }
  [[nodiscard]] std::int64_t last_id() override;
  void begin_writing() override;
  void begin_reading() override;
  void commit() override;
  [[nodiscard]] bool in_transaction() const override { return in_transaction_; }
  void forbid_changes() override;
  [[nodiscard]] std::int64_t version() override;
  void set_version(std::int64_t version) override;
  [[nodiscard]] bool changed_elsewhere() override;
  [[nodiscard]] std::vector<std::string> take_reports() override;
  [[nodiscard]] bool lost() const override;
  void reconnect() override;
  [[nodiscard]] bool last_commit_stored() override;

 private:
  friend class PostgresQuery;
  using Values = std::vector<std::optional<std::string>>;
  struct Connection;

  void connect();
  // Takes in what the server has sent by itself.
  void listen();
  // Runs a function that uses the connection; one that only reads and is lost is made again first.
  template <class Function>
  auto guarded(Function function) -> decltype(function());
  // Runs a function that uses the connection, with libpqxx's errors translated.
  template <class Function>
  auto checked(Function function) -> decltype(function());
  [[noreturn]] void lose(const std::string& reason);
  // Runs one statement with its values, null ones included.
  [[nodiscard]] pqxx::result run(const std::string& sql, const Values& values);
  // The text in the first column of the first row; empty for NULL.
  [[nodiscard]] std::string single_text(const char* sql);

  const std::string url_;
  std::unique_ptr<Connection> connection_;  // null while it is lost
  std::int64_t changes_ = 0;
  bool in_transaction_ = false;
  bool reads_only_ = false;
  bool reconnected_ = false;
  // The number that the server has for the transaction whose commit is under way; empty if it has none.
  std::string committing_;
};

}  // namespace vlk::relay
