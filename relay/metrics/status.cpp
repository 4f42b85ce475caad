// Puts the readings into JSON.
#include "relay/metrics/status.h"

#include <chrono>

#include <nlohmann/json.hpp>

#include "relay/base/version.h"

namespace vlk::relay {
namespace {

using Json = nlohmann::json;

constexpr double kMost = 0.99;  // of the database's jobs

Json database_json(const Sources& sources, const Readings& now) {
  const auto most = now.database.times.bound_of(kMost);
  return {{"connected", !sources.database.lost()},
          {"jobs", now.database.jobs},
          {"jobs_limit", sources.database.bounds().jobs},
          {"most_within_ms", most ? Json(most->count()) : Json()}};
}

Json authority_json(std::int64_t ends, std::int64_t now) {
  if (ends == 0) return {};
  return {{"ends", ends}, {"ends_soon", ends - now <= kCertificateWarning}};
}

Json certificate_json(const LiveCertificate& certificate, std::int64_t now) {
  return {{"ends", certificate.ends()},
          {"ends_soon", certificate.ends() - now <= kCertificateWarning},
          {"authority", authority_json(certificate.authority_ends(), now)},
          {"problem", certificate.problem().empty() ? Json() : Json(certificate.problem())}};
}

}  // namespace

Json status_json(const Sources& sources, std::int64_t started, std::int64_t now) {
  const Readings readings = read_now(sources);
  const Parts& parts = sources.parts;
  const auto lag = std::chrono::ceil<std::chrono::milliseconds>(sources.lag.worst());
  return {
      {"version", kRelayVersion},
      {"started", started},
      {"machines", {{"online", parts.machines.count_online()}, {"waiting", parts.machines.count_waiting()}}},
      {"sessions",
       {{"asked", readings.sessions[0]}, {"running", readings.sessions[1]}, {"held", readings.sessions[2]}}},
      {"browsers", parts.browsers.all().size()},
      {"streams", readings.streams},
      {"pictures_per_second", readings.shown},
      {"memory",
       {{"resident", readings.resident},
        {"messages", parts.router.held_bytes()},
        {"messages_limit", sources.limits.bytes_in_flight}}},
      {"queues", {{"agents", readings.agent_queues}, {"browsers", readings.browser_queues}}},
      {"disk",
       {{"data_free", readings.data_free},
        {"spool_free", readings.spool_free},
        {"spool", sources.spools.used()},
        {"spool_limit", sources.limits.spools}}},
      {"database", database_json(sources, readings)},
      {"loop_lag_ms", lag.count()},
      {"certificate", certificate_json(sources.certificate, now)},
  };
}

}  // namespace vlk::relay
