// What other connections to a PostgreSQL server report with NOTIFY.
#pragma once

#include <pqxx/pqxx>
#include <string>
#include <utility>
#include <vector>

namespace vlk::relay {

// Collects what other connections send on a channel. Used by the connection's thread.
class Listener : public pqxx::notification_receiver {
 public:
  Listener(pqxx::connection& connection, const std::string& channel)
      : notification_receiver(connection, channel), own_(connection.backendpid()) {}
  void operator()(const std::string& text, int process) override {
    if (process != own_) texts_.push_back(text);
  }
  [[nodiscard]] std::vector<std::string> take() { return std::exchange(texts_, {}); }

 private:
  const int own_;
  std::vector<std::string> texts_;
};

}  // namespace vlk::relay
