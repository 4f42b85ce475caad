// Every time-out and size that the relay holds its peers to, in one place. Tests pass shorter ones.
#pragma once

#include <chrono>
#include <cstddef>

namespace vlk::relay {

using Clock = std::chrono::steady_clock;

struct Limits {
  // TLS handshake, each HTTP request, and on the agents' link hello and log-in together.
  std::chrono::milliseconds handshake{10'000};
  std::chrono::milliseconds keep_alive{60'000};  // an HTTP connection between two requests
  std::chrono::milliseconds heartbeat{15'000};   // between two heartbeats to an agent
  // An agent that sent nothing, or took nothing of what waits for it, for this long is gone.
  std::chrono::milliseconds agent_silence{45'000};
  std::chrono::milliseconds consent{120'000};      // for the local user's answer
  std::chrono::milliseconds slow_browser{15'000};  // a browser that reads nothing loses its sessions
  std::chrono::milliseconds dead_browser{30'000};  // and then its connection
  std::chrono::milliseconds browser_ping{30'000};  // silence after which a browser is pinged
  std::chrono::milliseconds idle_browser{60'000};  // and after which it is gone
  // How long a refused agent is kept waiting before its connection is closed. It dials again 500 ms after
  // each close, so that this pause is all that paces it.
  std::chrono::milliseconds refused_hold{30'000};
  std::chrono::milliseconds last_seen{60'000};    // between two records of who is connected
  std::chrono::milliseconds login_check{60'000};  // between two looks whether a console's login still holds
  std::chrono::milliseconds tick{250};            // how finely all of these are watched
  std::chrono::seconds login{12 * 3600};          // life of a representative's login

  std::size_t queue_bytes = 1 << 20;             // waiting for one peer before its source is no longer read
  std::size_t unauthenticated_message = 4096;    // bytes of one message before the log-in
  std::size_t agent_message = (64u << 20) + 10;  // bytes of one message of an agent, header included
  std::size_t browser_message = (8u << 20) + 10;
  std::size_t control_message = 4096;  // bytes of one that the relay itself reads
  std::size_t http_header = 16 * 1024;
  std::size_t http_body = 64 * 1024;
  std::size_t connections = 8192;
  std::size_t sessions_per_browser = 16;

  std::chrono::seconds failure_window{600};
  std::size_t failures_per_name = 10;     // wrong passwords for one name from one address
  std::size_t failures_per_address = 50;  // and from one address over all names
  std::size_t enrolments_per_address = 30;
  std::size_t refusals_per_address = 30;  // of agents' log-ins that the audit trail keeps
  std::size_t counted_keys = 10'000;      // names and addresses remembered at most
};

}  // namespace vlk::relay
