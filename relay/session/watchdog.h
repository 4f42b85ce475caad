// Everything that happens after a time: heartbeats are sent; silent peers and peers that do not read are
// disconnected; unanswered requests end; browsers whose log-in ended are closed.
#pragma once

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/thread_checker.h"
#include "relay/session/audit_trail.h"
#include "relay/session/browsers.h"
#include "relay/session/machines.h"
#include "relay/session/sessions.h"
#include "relay/storage/store.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Watchdog {
 public:
  // The arguments outlive this object.
  Watchdog(Machines& machines, Browsers& browsers, Sessions& sessions, AuditTrail& audit, Store& store,
           const Log& log, const Limits& limits)
      : machines_(machines),
        browsers_(browsers),
        sessions_(sessions),
        audit_(audit),
        store_(store),
        log_(log),
        limits_(limits) {}

  // To be called at the interval Limits::tick.
  void tick(Clock::time_point now);

 private:
  void watch_agent(AgentPeer& peer, Clock::time_point now);
  void send_heartbeat(AgentPeer& peer, Clock::time_point now);
  void watch_browser(ConsolePeer& peer, Clock::time_point now);
  void watch_alive(ConsolePeer& peer, Clock::time_point now);
  void watch_idle(ConsolePeer& peer, Clock::time_point now);
  void watch_login(ConsolePeer& peer, Clock::time_point now);

  const ThreadChecker thread_;
  Machines& machines_;
  Browsers& browsers_;
  Sessions& sessions_;
  AuditTrail& audit_;
  Store& store_;
  const Log& log_;
  const Limits& limits_;
  Clock::time_point last_seen_recorded_ = Clock::now();
};

}  // namespace vlk::relay
