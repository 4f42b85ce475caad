// Answers the requests of operators.
#include "relay/metrics/monitoring.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/clock.h"
#include "relay/metrics/relay_metrics.h"
#include "relay/metrics/status.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr char kMetricsType[] = "text/plain; version=0.0.4; charset=utf-8";
constexpr unsigned kOk = 200;
constexpr unsigned kFailed = 500;
constexpr unsigned kUnavailable = 503;

}  // namespace

Monitoring::Monitoring(Sources sources, asio::any_io_executor executor, std::function<bool()> listening)
    : sources_(std::move(sources)),
      executor_(std::move(executor)),
      started_(wall_seconds()),
      readiness_(sources_, executor_, std::move(listening)) {}

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
  return status_json(sources_, started_, wall_seconds());
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
