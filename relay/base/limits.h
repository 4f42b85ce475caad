// Every timeout and size limit that the relay enforces. Tests set shorter timeouts and smaller limits.
#pragma once

#include <chrono>
#include <cstddef>

namespace vlk::relay {

struct Limits {
  // Time limit for the TLS handshake, for each HTTP request, and for an agent's hello and log-in together.
  std::chrono::milliseconds handshake{10'000};
  std::chrono::milliseconds keep_alive{60'000};  // how long an HTTP connection may be idle between requests
  std::chrono::milliseconds heartbeat{15'000};   // interval of the heartbeats to an agent
  // An agent is disconnected when it has sent nothing for this time, or has taken no byte of its queued
  // messages.
  std::chrono::milliseconds agent_silence{45'000};
  // A browser to which nothing else is sent for this time gets a message, so that it knows that the relay
  // still works on a message that takes long.
  std::chrono::milliseconds browser_alive{2'500};
  std::chrono::milliseconds consent{120'000};  // time for the local user to answer a request
  // The sessions of a browser end when it has taken no byte of its queued messages for this time.
  std::chrono::milliseconds slow_browser{15'000};
  // A browser is disconnected when it has taken no byte of its queued messages for this time.
  std::chrono::milliseconds dead_browser{30'000};
  // A browser is pinged when it has sent nothing for this time.
  std::chrono::milliseconds browser_ping{30'000};
  // A browser is disconnected when it has sent nothing for this time, not even the answer to a ping.
  std::chrono::milliseconds idle_browser{60'000};
  // How long the connection of a refused agent stays open. The agent connects again 500 ms after each close,
  // so this delay is what limits the rate of its attempts.
  std::chrono::milliseconds refused_hold{30'000};
  std::chrono::milliseconds last_seen{60'000};    // between two writes of "last seen" to the database
  std::chrono::milliseconds login_check{60'000};  // interval of the checks that a browser's log-in is valid
  std::chrono::milliseconds tick{250};            // interval of the checks of the limits above
  std::chrono::seconds login{12 * 3600};          // lifetime of a representative's log-in

  // While more bytes than this are queued for a peer, the relay does not read from their sender.
  std::size_t queue_bytes = 1 << 20;
  std::size_t unauthenticated_message = 4096;  // largest message before the log-in, in bytes
  // Largest message of a machine to the browser of its session, in bytes: 64 MiB of clipboard files, 4 MiB
  // for the names and sizes of the files, and 15 bytes of headers. An agent limits the bytes of the files but
  // not their number; the names of 5,000 files fit even if each has the longest name.
  std::size_t agent_message = (68u << 20) + 15;
  // Messages of machines over small_message bytes may have large_messages bytes together, from their arrival
  // until they are written to browsers. A message that exceeds this is dropped. Pictures stay below
  // small_message.
  std::size_t small_message = 4u << 20;
  std::size_t large_messages = 512u << 20;
  // Pictures and control messages overtake a message of more bytes on its way to a browser.
  std::size_t bulk_message = 512u << 10;
  std::size_t browser_message = (8u << 20) + 10;
  std::size_t control_message = 4096;  // largest message that the relay itself parses, in bytes
  std::size_t http_header = 16 * 1024;
  std::size_t http_body = 64 * 1024;
  std::size_t connections = 8192;
  std::size_t sessions_per_browser = 16;

  std::chrono::seconds failure_window{600};  // the five limits below count the events of this time
  std::size_t failures_per_name = 10;        // wrong passwords for one name from one address
  std::size_t failures_per_address = 50;     // wrong passwords for all names from one address
  std::size_t enrolments_per_address = 30;
  std::size_t refusals_per_address = 30;  // refused log-ins of agents that the audit trail records
  std::size_t cuts_per_machine = 10;      // closed connections of one machine at representatives' requests
  std::size_t counted_keys = 10'000;      // largest number of names and addresses that a counter remembers
};

}  // namespace vlk::relay
