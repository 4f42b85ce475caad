// Answers the requests of operators.
#include "relay/metrics/monitoring.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/clock.h"
#include "relay/metrics/relay_metrics.h"
#include "relay/metrics/status.h"
#include "relay/storage/trail/kinds.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr char kMetricsType[] = "text/plain; version=0.0.4; charset=utf-8";
constexpr unsigned kOk = 200;
constexpr unsigned kFailed = 500;
constexpr unsigned kUnavailable = 503;

// When the database was backed up last, in seconds since 1970; 0 if never.
std::int64_t last_backup(Database& database) {
  Statement newest(database, "SELECT time FROM trail WHERE code = ? ORDER BY id DESC LIMIT 1");
  newest.bind(rule_of(TrailKind::BackupMade).code);
  return newest.step() ? newest.number(0) / 1000 : 0;
}

}  // namespace

Monitoring::Monitoring(Sources sources, asio::any_io_executor executor, std::function<bool()> listening)
    : sources_(std::move(sources)),
      executor_(std::move(executor)),
      started_(wall_seconds()),
      readiness_(sources_, executor_, std::move(listening)) {
  reload();
}

// A failure leaves the time that is known; the readiness reports a database that does not work.
void Monitoring::reload() {
  const auto found = std::make_shared<std::int64_t>(0);
  const auto look = [found](Store& store) { *found = last_backup(store.database()); };
  sources_.database.post_reading(look, [found, known = last_backup_](const std::string& failure) {
    if (failure.empty()) *known = *found;
  });
}

void Monitoring::open(const OperatorsAddress& where) {
  port_.emplace(
      executor_, where, [this](std::string path) { return answer(std::move(path)); }, sources_.log,
      sources_.limits);
  const std::string host = where.address.to_string();
  sources_.log.write("", "",
                     "the port for operators is http://" + (where.address.is_v6() ? '[' + host + ']' : host) +
                         ':' + std::to_string(port_->port()) + '/');
  if (is_private(where.address)) return;
  sources_.log.write("", "",
                     "warning: the port for operators has neither a log-in nor encryption, and its address " +
                         host + " can be reached from other networks");
}

std::optional<unsigned short> Monitoring::port() const {
  return port_ ? std::optional(port_->port()) : std::nullopt;
}

void Monitoring::stop() {
  if (port_) port_->stop();
}

nlohmann::json Monitoring::status() const {
  nlohmann::json status = status_json(sources_, started_, wall_seconds());
  status["backup"] = *last_backup_ == 0 ? nlohmann::json() : nlohmann::json(*last_backup_);
  return status;
}

asio::awaitable<OperatorsPort::Answer> Monitoring::answer(std::string path) {
  OperatorsPort::Answer found;
  try {
    if (path == "/healthz") {
      found = {kOk, "ok\n"};
    } else if (path == "/readyz") {
      found = co_await ready();
    } else if (path == "/metrics") {
      found = {kOk, metrics_text(sources_, started_, wall_seconds()), kMetricsType};
    } else {
      found.text = "There are /healthz, /readyz and /metrics.\n";
    }
  } catch (const std::exception& failure) {
    found = {kFailed, std::string(failure.what()) + '\n'};
  }
  co_return found;
}

asio::awaitable<OperatorsPort::Answer> Monitoring::ready() {
  const std::vector<std::string> problems = co_await readiness_.problems();
  OperatorsPort::Answer found{problems.empty() ? kOk : kUnavailable, problems.empty() ? "ready\n" : ""};
  for (const std::string& problem : problems)
    found.text += problem + '\n';
  co_return found;
}

}  // namespace vlk::relay
