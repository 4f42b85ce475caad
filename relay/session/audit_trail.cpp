// Writes the rows of the audit trail.
#include "relay/session/audit_trail.h"

#include <string>

namespace vlk::relay {

AuditTrail::~AuditTrail() {
  flush();
}

void AuditTrail::write(const AuditRecord& record) {
  thread_.check();
  try {
    store_.audit({record});
  } catch (const DatabaseError& failure) {
    log_.write(record.address, record.agent,
               "audit record \"" + record.event + "\" is lost: " + failure.what());
  }
}

void AuditTrail::note(const Session& session, const AuditNote& note) {
  thread_.check();
  notes_.push_back({note.event, session.console->representative, session.agent->id, session.console->address,
                    note.detail});
}

void AuditTrail::write_notes() {
  thread_.check();
  flush();
}

void AuditTrail::flush() {
  if (notes_.empty()) return;
  try {
    store_.audit(notes_);
  } catch (const DatabaseError& failure) {
    log_.write("", "",
               std::to_string(notes_.size()) + " audit records of sessions are lost: " + failure.what());
  }
  notes_.clear();
}

}  // namespace vlk::relay
