// Every timeout and size limit that the relay enforces. Tests use shorter ones.
#pragma once

#include <chrono>
#include <cstddef>

namespace vlk::relay {

struct Limits {
  // For the TLS handshake, for each HTTP request, and for an agent's hello and log-in together.
  std::chrono::milliseconds handshake{10'000};
  std::chrono::milliseconds keep_alive{60'000};  // an HTTP connection between two requests
  std::chrono::milliseconds heartbeat{15'000};   // between two heartbeats to an agent
  // After which an agent counts as gone if it sent nothing, or read nothing of what waits for it.
  std::chrono::milliseconds agent_silence{45'000};
  std::chrono::milliseconds consent{120'000};  // for the local user's answer to a request
  std::chrono::milliseconds slow_browser{
      15'000};  // after which a browser that reads nothing loses its sessions
  std::chrono::milliseconds dead_browser{30'000};  // and after which it loses its connection
  std::chrono::milliseconds browser_ping{30'000};  // of silence, after which a browser is pinged
  std::chrono::milliseconds idle_browser{60'000};  // of silence, after which a browser counts as gone
  // Before the connection of a refused agent is closed. The agent connects again 500 ms after each close, so
  // only this delay limits its rate.
  std::chrono::milliseconds refused_hold{30'000};
  std::chrono::milliseconds last_seen{60'000};    // between two writes of who is connected
  std::chrono::milliseconds login_check{60'000};  // between two checks that a browser's log-in is still valid
  std::chrono::milliseconds tick{250};            // between two checks of the limits above
  std::chrono::seconds login{12 * 3600};          // lifetime of a representative's log-in

  std::size_t queue_bytes = 1 << 20;  // queued for one peer before the relay stops reading its source
  std::size_t unauthenticated_message = 4096;    // bytes of one message before the log-in
  std::size_t agent_message = (64u << 20) + 10;  // bytes of one message of an agent, header included
  std::size_t browser_message = (8u << 20) + 10;
  std::size_t control_message = 4096;  // bytes of a message that the relay itself parses
  std::size_t http_header = 16 * 1024;
  std::size_t http_body = 64 * 1024;
  std::size_t connections = 8192;
  std::size_t sessions_per_browser = 16;

  std::chrono::seconds failure_window{600};
  std::size_t failures_per_name = 10;     // wrong passwords for one name from one address
  std::size_t failures_per_address = 50;  // wrong passwords for all names from one address
  std::size_t enrolments_per_address = 30;
  std::size_t refusals_per_address = 30;  // of agents' log-ins that the audit trail records
  std::size_t counted_keys = 10'000;      // most names and addresses that a counter remembers
};

}  // namespace vlk::relay
