// The audit trail: what representatives and agents did, as rows of the database.
#pragma once

#include <vector>

#include "relay/base/log.h"
#include "relay/base/thread_checker.h"
#include "relay/session/peers.h"
#include "relay/storage/store.h"

namespace vlk::relay {

// If the database cannot write a row, the row is lost; the log reports this, and the relay continues. Used on
// the relay's one thread.
class AuditTrail {
 public:
  // `store` and `log` outlive the audit trail.
  AuditTrail(Store& store, const Log& log) : store_(store), log_(log) {}
  // Writes the notes that have not been written yet.
  ~AuditTrail();
  AuditTrail(const AuditTrail&) = delete;
  AuditTrail& operator=(const AuditTrail&) = delete;

  // Writes one row at once.
  void write(const AuditRecord& record);

  // Keeps a note about a session for the next write_notes(). Notes about files can arrive by the thousand,
  // and each write waits for the disk.
  void note(const Session& session, const AuditNote& note);
  // Writes all kept notes in one transaction.
  void write_notes();

 private:
  void flush();

  const ThreadChecker thread_;
  Store& store_;
  const Log& log_;
  std::vector<AuditRecord> notes_;
};

}  // namespace vlk::relay
