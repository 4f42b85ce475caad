// Asks the database, the disk and the certificate.
#include "relay/metrics/readiness.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/base/clock.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr int kMebibyte = 20;  // as a power of two

}  // namespace

// While the database does not answer, further questions wait for the same job, so that they do not fill its
// queue.
asio::awaitable<std::string> Readiness::database_problem() {
  if (!probe_ || probe_->done) {
    probe_ = std::make_shared<Probe>(Probe{asio::steady_timer(executor_, sources_.limits.database_answer)});
    const auto look = [](Store& store) { Statement(store.database(), "SELECT 1").step(); };
    sources_.database.post(look, [probe = probe_](const std::string& failure) {
      probe->done = true;
      probe->failure = failure;
      probe->until.cancel();
    });
  }
  const auto probe = probe_;
  if (!probe->done) co_await probe->until.async_wait(kAsTuple);
  if (probe->done && probe->failure.empty()) co_return std::string();
  co_return probe->done ? "The database does not work: " + probe->failure : "The database does not answer.";
}

asio::awaitable<std::vector<std::string>> Readiness::problems() {
  std::vector<std::string> problems;
  if (!listening_()) problems.emplace_back("The relay does not accept connections.");
  const std::int64_t now = wall_seconds();
  if (sources_.certificate.ends() <= now) problems.emplace_back("The certificate has ended.");
  if (sources_.certificate.begins() > now) problems.emplace_back("The certificate is not valid yet.");
  if (free_bytes(sources_.data) < sources_.limits.least_free) {
    problems.push_back("Less than " + std::to_string(sources_.limits.least_free >> kMebibyte) +
                       " MiB are free for the database and the audit trail.");
  }
  std::string database = co_await database_problem();
  if (!database.empty()) problems.push_back(std::move(database));
  co_return problems;
}

}  // namespace vlk::relay
