// All parts of this folder, in the order in which each needs those before it.
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
  // `store`, `log` and `limits` outlive this. Throws DatabaseError.
  Parts(Store& store, const Log& log, const Limits& limits)
      : audit(store, log),
        machines(store, log),
        browsers(log),
        sessions(machines, browsers, transfers, audit, log, limits, random_number()),
        router(sessions, transfers, audit, limits),
        watchdog(machines, browsers, sessions, audit, store, log, limits) {}

  // Numbers of transfers and sessions start at random, so that a stale number from before a restart of the
  // relay is unlikely to match a live one.
  Transfers transfers{random_number()};
  AuditTrail audit;
  Machines machines;
  Browsers browsers;
  Sessions sessions;
  Router router;
  Watchdog watchdog;
};

}  // namespace vlk::relay
