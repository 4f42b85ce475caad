// The names and meanings of the metrics. docs/relay.md explains them to operators.
#include "relay/metrics/relay_metrics.h"

#include "relay/base/version.h"
#include "relay/metrics/exposition.h"

namespace vlk::relay {
namespace {

using Type = Exposition::Type;

template <class Number>
double number(Number value) {
  return static_cast<double>(value);
}

const char* standing_name(Standing standing) {
  switch (standing) {
    case Standing::Stranger:
      return "stranger";
    case Standing::Waiting:
      return "waiting";
    case Standing::Known:
      break;
  }
  return "known";
}

const char* session_state_name(SessionState state) {
  switch (state) {
    case SessionState::Asked:
      return "asked";
    case SessionState::Accepted:
      return "accepted";
    case SessionState::Held:
      return "held";
    case SessionState::Ended:
      break;
  }
  return "ended";
}

void add_connections(Exposition& all, const Sources& sources) {
  all.begin("connections", "Open connections by what they have shown so far.", Type::Gauge);
  for (const Standing standing : kStandings)
    all.value(number(sources.connections.count(standing)), {{"standing", standing_name(standing)}});
  all.begin("connections_limit", "The largest number of connections.", Type::Gauge);
  for (const Standing standing : kStandings)
    all.value(number(sources.connections.limit(standing)), {{"standing", standing_name(standing)}});
  all.counter("handshakes_failed_total", "TLS handshakes that failed.",
              number(sources.parts.counters.failed_handshakes));
}

void add_people(Exposition& all, const Sources& sources, const Readings& now) {
  const Parts& parts = sources.parts;
  all.gauge("agents_online", "Machines that are connected and logged in.",
            number(parts.machines.count_online()));
  all.begin("machines", "Machines by their state.", Type::Gauge);
  for (std::size_t i = 0; i < kMachineStates.size(); ++i)
    all.value(number(now.machines.at(i)), {{"state", state_name(kMachineStates.at(i))}});
  all.gauge("browsers", "Connected browsers of people.", number(parts.browsers.all().size()));
  all.begin("sessions", "Sessions by their state.", Type::Gauge);
  for (std::size_t i = 0; i < kSessionStates.size(); ++i)
    all.value(number(now.sessions.at(i)), {{"state", session_state_name(kSessionStates.at(i))}});
  all.gauge("streams", "Machines that send pictures.", number(now.streams));
  const Counters& counters = parts.counters;
  all.begin("log_ins_total", "Passwords and codes of people, by what became of them.", Type::Counter)
      .value(number(counters.right_log_ins), {{"result", "right"}})
      .value(number(counters.wrong_log_ins), {{"result", "wrong"}})
      .value(number(counters.refused_log_ins), {{"result", "refused"}});
  all.begin("enrolments_total", "Enrolments of machines, by what became of them.", Type::Counter)
      .value(number(counters.enrolments), {{"result", "stored"}})
      .value(number(counters.refused_enrolments), {{"result", "refused"}});
}

void add_flow(Exposition& all, const Parts& parts, double (*of)(const Traffic::Flow&)) {
  for (const auto& [peer, traffic] :
       {std::pair("agent", &parts.counters.agents), std::pair("browser", &parts.counters.browsers)}) {
    for (const auto& [way, direction] : {std::pair("in", &traffic->in), std::pair("out", &traffic->out)}) {
      all.value(of(direction->pictures), {{"peer", peer}, {"direction", way}, {"kind", "picture"}});
      all.value(of(direction->bulk), {{"peer", peer}, {"direction", way}, {"kind", "bulk"}});
      all.value(of(direction->others), {{"peer", peer}, {"direction", way}, {"kind", "other"}});
    }
  }
}

void add_traffic(Exposition& all, const Sources& sources, const Readings& now) {
  const Parts& parts = sources.parts;
  all.begin("messages_total", "Messages that arrived from peers and were written to them.", Type::Counter);
  add_flow(all, parts, [](const Traffic::Flow& flow) { return number(flow.messages); });
  all.begin("message_bytes_total", "Bytes of these messages.", Type::Counter);
  add_flow(all, parts, [](const Traffic::Flow& flow) { return number(flow.bytes); });
  all.counter("pictures_dropped_total", "Pictures that were dropped because their viewer reads too slowly.",
              number(parts.counters.browsers.dropped_pictures));
  all.begin("picture_age_seconds", "The age that the relay's queues added to each picture.", Type::Histogram)
      .durations(parts.counters.browsers.waited);
  all.begin("queue_bytes", "Bytes that wait to be written.", Type::Gauge)
      .value(number(now.agent_queues), {{"peer", "agent"}})
      .value(number(now.browser_queues), {{"peer", "browser"}});
  all.gauge("message_memory_bytes", "Memory of the large messages on their way.",
            number(parts.router.held_bytes()));
  all.gauge("message_memory_limit_bytes", "The largest value of vantelink_relay_message_memory_bytes.",
            number(sources.limits.bytes_in_flight));
}

void add_storage(Exposition& all, const Sources& sources, const Readings& now) {
  all.gauge("spool_bytes", "Bytes on the disk for downloads that wait.", number(sources.spools.used()));
  all.gauge("spool_limit_bytes", "The largest value of vantelink_relay_spool_bytes.",
            number(sources.limits.spools));
  all.begin("disk_free_bytes", "Free bytes on the file system of a folder.", Type::Gauge)
      .value(number(now.data_free), {{"folder", "data"}})
      .value(number(now.spool_free), {{"folder", "spool"}});
  all.gauge("database_connected", "1 while the database can be reached.", sources.database.lost() ? 0 : 1);
  all.gauge("database_jobs", "Jobs that wait for the database or run.", number(now.database.jobs));
  all.gauge("database_jobs_limit", "The largest value of vantelink_relay_database_jobs.",
            number(sources.database.bounds().jobs));
  all.begin("database_job_seconds", "The time from the giving of each job to its commit.", Type::Histogram)
      .durations(now.database.times);
  const AuditTrail& trail = sources.parts.audit;
  all.begin("trail_rows_total", "Rows of the audit trail that were stored on their own, or were lost.",
            Type::Counter)
      .value(number(trail.stored()), {{"result", "stored"}})
      .value(number(trail.lost()), {{"result", "lost"}});
  all.begin("log_lines_total", "Lines of the log, and lines that were only counted.", Type::Counter)
      .value(number(sources.log.lines()), {{"result", "written"}})
      .value(number(sources.log.left_out()), {{"result", "left_out"}});
}

// All are 0 for a relay that shares its database with no other.
void add_cluster(Exposition& all, const Parts& parts) {
  all.gauge("other_relays", "Further relays of the database that live.", number(parts.cluster.others()));
  all.gauge("machines_elsewhere", "Machines that are connected to other relays.",
            number(parts.machines.count_elsewhere()));
  all.gauge("draining", "1 while the relay moves its machines away.", parts.cluster.draining() ? 1 : 0);
}

void add_process(Exposition& all, const Sources& sources, const Readings& now) {
  all.gauge("resident_memory_bytes", "Memory of the process.", number(now.resident));
  all.gauge("open_descriptors", "Open file descriptors.", number(now.descriptors));
  all.gauge("descriptors_limit", "The largest value of vantelink_relay_open_descriptors.",
            number(now.descriptor_limit));
  all.begin("loop_lag_seconds", "How late the loop's timer was, several times a second.", Type::Histogram)
      .durations(sources.lag.counts());
}

void add_certificate(Exposition& all, const LiveCertificate& certificate, std::int64_t now) {
  all.begin("certificate_end_seconds",
            "Seconds until the certificate, or the relay's own authority, ends; negative after its end.",
            Type::Gauge)
      .value(number(certificate.ends() - now), {{"certificate", "relay"}});
  if (certificate.authority_ends() != 0)
    all.value(number(certificate.authority_ends() - now), {{"certificate", "authority"}});
  all.begin("certificate_reloads_total", "Readings of the changed certificate, by what became of them.",
            Type::Counter)
      .value(number(certificate.reloads()), {{"result", "used"}})
      .value(number(certificate.failures()), {{"result", "failed"}});
}

}  // namespace

std::string metrics_text(const Sources& sources, std::int64_t started, std::int64_t now) {
  const Readings readings = read_now(sources);
  Exposition all;
  all.begin("build_info", "The relay's version; the value is always 1.", Type::Gauge)
      .value(1, {{"version", kRelayVersion}});
  all.gauge("start_time_seconds", "When the relay was started, in seconds since 1970.", number(started));
  add_connections(all, sources);
  add_people(all, sources, readings);
  add_traffic(all, sources, readings);
  add_storage(all, sources, readings);
  add_cluster(all, sources.parts);
  add_process(all, sources, readings);
  add_certificate(all, sources.certificate, now);
  return all.text();
}

}  // namespace vlk::relay
