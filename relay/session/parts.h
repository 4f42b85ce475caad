// All parts of this folder as one object. Each part uses only parts that are declared before it.
#pragma once

#include "relay/base/secrets.h"
#include "relay/people/logins.h"
#include "relay/people/people.h"
#include "relay/session/browsers.h"
#include "relay/session/cluster/cluster.h"
#include "relay/session/counters.h"
#include "relay/session/files/downloads.h"
#include "relay/session/files/transfers.h"
#include "relay/session/files/upload_counts.h"
#include "relay/session/machines.h"
#include "relay/session/router.h"
#include "relay/session/table/sessions.h"
#include "relay/session/trail/audit_trail.h"
#include "relay/session/trail/clip_notes.h"
#include "relay/session/watch/measures.h"
#include "relay/session/watch/watchdog.h"

namespace vlk::relay {

// Constructed once by the server, which outlives every connection.
struct Parts {
  // Reads the stored state. The arguments outlive this object. Throws DatabaseError.
  Parts(DatabaseThread& database_thread, Spools& spools, const Log& log, const Limits& limits);

  // Reads the stored state again, because another process has changed it, and applies what is different.
  void reload();
  // What the person's list of machines shows. People with equal rights share a view.
  [[nodiscard]] std::shared_ptr<const MachineView> view_of(PersonId person) const;

  DatabaseThread& database;
  const Log& log;
  Counters counters;
  // The numbers of transfers and sessions start at random numbers, so that a stale number from before a
  // restart of the relay is unlikely to match a transfer or session that exists.
  Transfers transfers{random_number()};
  Downloads downloads;
  People people;
  Logins logins;
  AuditTrail audit;
  ClipNotes clips{audit};
  Machines machines;
  Cluster cluster{database, machines, log};
  Browsers browsers;
  PressedInput pressed;
  UploadCounts uploads;
  Sessions sessions;
  Router router;
  Measures measures;
  QualityControl quality;
  Watchdog watchdog;
  MemoryBudget recent_pictures;

 private:
  void remove_login_that_is_over(const LoginRow& row, bool idle);
};

}  // namespace vlk::relay
