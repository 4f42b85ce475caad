// Everything that happens after a time: heartbeats are sent; silent peers and peers that do not read are
// disconnected; unanswered requests end; browsers whose log-in ended are closed.
#pragma once

#include <cstddef>
#include <memory>
#include <set>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/people/logins.h"
#include "relay/session/browsers.h"
#include "relay/session/machines.h"
#include "relay/session/table/sessions.h"
#include "relay/session/watch/measures.h"
#include "relay/session/watch/quality_control.h"
#include "relay/storage/thread/database_thread.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Watchdog {
 public:
  // The arguments outlive this object.
  Watchdog(Machines& machines, Browsers& browsers, Sessions& sessions, Logins& logins, Measures& measures,
           QualityControl& quality, DatabaseThread& database, const Log& log, const Limits& limits)
      : machines_(machines),
        browsers_(browsers),
        sessions_(sessions),
        logins_(logins),
        measures_(measures),
        quality_(quality),
        database_(database),
        log_(log),
        limits_(limits) {}

  // To be called at the interval Limits::tick.
  void tick(Clock::time_point now);
  // Whether machines in a session have a heartbeat due. With many sessions a tick sends some of them only, so
  // that pictures do not wait for all.
  [[nodiscard]] bool heartbeats_wait() const { return heartbeats_wait_; }
  // Sends the next of them; to be called several times between two ticks.
  void send_heartbeats(Clock::time_point now);

 private:
  using Agents = std::set<std::shared_ptr<AgentPeer>>;
  [[nodiscard]] Agents agents_in_session() const;
  void watch_agents_in_session(const Agents& agents, Clock::time_point now);
  void watch_idle_agents(const Agents& in_session, Clock::time_point now);
  void watch_agent(AgentPeer& peer, bool in_session, Clock::time_point now);
  void send_heartbeat(AgentPeer& peer, Clock::time_point now);
  void watch_browser(ConsolePeer& peer, Clock::time_point now);
  void watch_alive(ConsolePeer& peer, Clock::time_point now);
  void watch_idle(ConsolePeer& peer, Clock::time_point now);
  void record_use(Clock::time_point now);

  const ThreadChecker thread_;
  Machines& machines_;
  Browsers& browsers_;
  Sessions& sessions_;
  Logins& logins_;
  Measures& measures_;
  QualityControl& quality_;
  DatabaseThread& database_;
  const Log& log_;
  const Limits& limits_;
  std::size_t heartbeats_left_ = 0;  // that may be sent to machines in a session now
  bool heartbeats_wait_ = false;
  std::shared_ptr<AgentPeer> last_greeted_;  // that has got a heartbeat, of the machines in a session
  std::shared_ptr<AgentPeer> looked_at_;     // the last of the machines without a session
  Clock::time_point use_recorded_ = Clock::now();
};

}  // namespace vlk::relay
