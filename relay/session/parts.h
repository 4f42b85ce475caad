// All parts of this folder as one object. Each part uses only parts that are declared before it.
#pragma once

#include "relay/base/secrets.h"
#include "relay/session/audit_trail.h"
#include "relay/session/browsers.h"
#include "relay/session/machines.h"
#include "relay/session/router.h"
#include "relay/session/sessions.h"
#include "relay/session/transfers.h"
#include "relay/session/watchdog.h"

namespace vlk::relay {

// Constructed once by the server, which outlives every connection.
struct Parts {
  // `store`, `log` and `limits` outlive this object. Throws DatabaseError.
  Parts(Store& store, const Log& log, const Limits& limits)
      : audit(store, log),
        machines(store, log),
        browsers(log),
        sessions(machines, browsers, transfers, audit, log, limits, random_number()),
        router(sessions, transfers, audit, limits),
        watchdog(machines, browsers, sessions, audit, store, log, limits) {}

  // The numbers of transfers and sessions start at random numbers, so that a stale number from before a
  // restart of the relay is unlikely to match a transfer or session that exists.
  Transfers transfers{random_number()};
  AuditTrail audit;
  Machines machines;
  Browsers browsers;
  Sessions sessions;
  Router router;
  Watchdog watchdog;
};

}  // namespace vlk::relay
