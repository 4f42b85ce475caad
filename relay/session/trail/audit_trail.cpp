// Gives the rows of the audit trail to the database, one job a row.
#include "relay/session/trail/audit_trail.h"

#include <memory>
#include <string>
#include <utility>

#include <boost/asio/post.hpp>

#include "relay/storage/trail/chain.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

std::size_t bytes_of(const TrailEntry& entry) {
  const TrailSubject& subject = entry.subject;
  return sizeof entry + entry.fields.size() + subject.actor.size() + subject.machine.size() +
         subject.address.size();
}

}  // namespace

void AuditTrail::write(TrailEntry entry, std::function<void()> lost) {
  thread_.check();
  const std::size_t bytes = bytes_of(entry);
  const auto row = std::make_shared<const TrailEntry>(std::move(entry));
  const std::optional<std::int64_t> session = row->subject.session;
  const auto done = [this, row, lost = std::move(lost)](const std::string& failure) {
    finish(*row);
    ++(failure.empty() ? stored_ : lost_);
    if (failure.empty()) return;
    report_lost(*row, failure);
    if (lost) lost();
  };
  const bool end = row->code == rule_of(TrailKind::SessionEnded).code;
  if (session && ++waiting_[*session] > kRowsPerSession && !end) {
    // The session ends later, because its sender may still use it.
    return asio::post(database_.loop(), [done] { done("too many rows of this session wait"); });
  }
  const auto append = [row](Store& store) { append_trail(store.database(), std::span(row.get(), 1)); };
  database_.post(append, done, bytes);
}

void AuditTrail::finish(const TrailEntry& row) {
  if (!row.subject.session) return;
  const auto waiting = waiting_.find(*row.subject.session);
  if (waiting != waiting_.end() && --waiting->second == 0) waiting_.erase(waiting);
}

void AuditTrail::report_lost(const TrailEntry& row, const std::string& failure) {
  const TrailSubject& subject = row.subject;
  log_.write(subject.address, subject.machine, "trail row \"" + row.code + "\" is lost: " + failure);
  if (subject.session && end_session_) end_session_(static_cast<std::uint32_t>(*subject.session));
}

void AuditTrail::note(const Session& session, TrailEntry entry) {
  entry.subject = {session.console->representative, session.agent->id, session.console->address,
                   session.number};
  write(std::move(entry));
}

}  // namespace vlk::relay
