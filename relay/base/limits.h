// Every timeout and size limit that the relay enforces. Tests set shorter timeouts and smaller limits.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vlk::relay {

struct Limits {
  // Time limit for the TLS handshake, for each HTTP request, and for an agent's hello and log-in together.
  std::chrono::milliseconds handshake{10'000};
  std::chrono::milliseconds keep_alive{60'000};  // how long an HTTP connection may be idle between requests
  std::chrono::milliseconds heartbeat{15'000};   // interval of the heartbeats to an agent
  std::chrono::milliseconds session_heartbeat{1'000};  // the same during a session
  std::chrono::milliseconds stages{
      1'000};  // interval of the reports to a browser about the way of the pictures
  std::chrono::milliseconds stages_log{60'000};  // the same to the log, for each session
  // An agent is disconnected when it has sent nothing for this time, or has taken no byte of its queued
  // messages.
  std::chrono::milliseconds agent_silence{45'000};
  // A browser to which nothing else is sent for this time gets a message, so that it knows that the relay
  // still works on a message that takes long.
  std::chrono::milliseconds browser_alive{2'500};
  std::chrono::milliseconds consent{30'000};  // time for the local user to answer a request
  // How long a request without an answer keeps its machine from being asked again.
  std::chrono::milliseconds lost_question{120'000};
  // A machine is not asked again while so many of its requests in question_window did not lead to a session.
  std::size_t refused_questions = 3;
  std::chrono::seconds question_window{60};
  // A browser is disconnected when it has taken no byte of its queued messages for this time.
  std::chrono::milliseconds slow_browser{15'000};
  // How long a session is held for a browser that disconnected; 0 means that the session ends at once.
  std::chrono::milliseconds hold{120'000};
  // Bytes on the disk for the downloads of one session, and of all sessions together.
  std::uint64_t spool = std::uint64_t{2} << 30;
  std::uint64_t spools = std::uint64_t{8} << 30;
  std::chrono::milliseconds held_stream{10'000};  // how long the stream of a held session goes on
  // A browser is pinged when it has sent nothing for this time.
  std::chrono::milliseconds browser_ping{30'000};
  // A browser is disconnected when it has sent nothing for this time, not even the answer to a ping.
  std::chrono::milliseconds idle_browser{60'000};
  // How long the connection of a refused agent stays open. The agent connects again 500 ms after each close,
  // so this delay is what limits the rate of its attempts.
  std::chrono::milliseconds refused_hold{30'000};
  std::chrono::milliseconds last_seen{60'000};          // between two writes of "last seen" to the database
  std::chrono::milliseconds tick{250};                  // interval of the checks of the limits above
  std::chrono::milliseconds update_look{2'000};         // interval of the looks at the folder of updates
  std::chrono::milliseconds certificate_look{2'000};    // the same at the files of the certificate
  std::chrono::milliseconds operators_request{10'000};  // of a connection to the port for operators
  std::chrono::milliseconds database_answer{
      2'000};  // after which a relay whose database is silent is not ready
  std::uint64_t least_free = std::uint64_t{64}
                             << 20;       // bytes on the disk, with less of which it is not ready
  std::chrono::seconds login{12 * 3600};  // lifetime of a log-in, unless the settings say otherwise
  std::chrono::seconds idle_login{0};     // a log-in's longest time without use; 0 means any

  // While more bytes than this are queued for a peer, the relay does not read from their sender.
  std::size_t queue_bytes = 1 << 20;
  // The same for the bytes of one session's uploads. The console waits for confirmations long before.
  std::size_t upload_queue = 6u << 20;
  // Keys and clicks for a machine whose system has confirmed nothing for this time are dropped, because the
  // representative does not see what they would do. Longer than a lost packet and its repetition take on a
  // line with a round trip of 600 ms; what was passed on before arrives late.
  std::chrono::milliseconds stale_input{3'000};
  std::size_t unauthenticated_message = 4096;  // largest message before the log-in, in bytes
  // Largest message of an agent from its log-in until one of its sessions was accepted, in bytes.
  std::size_t idle_message = 64 * 1024;
  // Largest message of a machine to the browser of its session, in bytes: 64 MiB of clipboard files and their
  // records. An agent limits the bytes of the files but not their number; the names of 20,000 files fit even
  // if each has the longest name.
  std::size_t agent_message = 80u << 20;
  // All messages over control_message bytes may have bytes_in_flight bytes together, from their arrival until
  // they are written or, for recent pictures, until they are not kept any longer. A peer whose message does
  // not fit is not read from for up to memory_wait. Then the largest message that arrives is cut with its
  // connection, or this message is dropped if none is larger. A machine's message over small_message bytes is
  // dropped at once if all would then have more than large_messages bytes, so that pictures, which stay below
  // small_message, find room.
  std::size_t bytes_in_flight = 512u << 20;
  std::size_t small_message = 4u << 20;
  std::size_t large_messages = 448u << 20;
  std::chrono::milliseconds memory_wait{10'000};
  // The bytes of pictures that all streams together keep for browsers that come back.
  std::size_t recent_pictures = 128u << 20;
  // Pictures and small messages overtake a message of more bytes on its way to a browser.
  std::size_t bulk_message = 32u << 10;
  std::size_t browser_message = (8u << 20) + 10;
  std::size_t control_message = 4096;  // largest message that the relay itself parses, in bytes
  std::size_t choices = 1024;          // of a console in one session, as JSON
  // A browser's reports about shown pictures: the pictures of one report, and the reports of one second.
  std::size_t shown_pictures = 60;
  std::size_t shown_reports = 10;
  std::size_t http_header = 16 * 1024;
  std::size_t http_body = 64 * 1024;  // of a person who has logged in; before that, unauthenticated_message
  // Connections before a log-in have one eighth of these, agents that have just enrolled one sixteenth.
  std::size_t connections = 12'800;
  std::size_t sessions_per_login = 16;
  std::size_t sessions_per_machine = 64;

  std::chrono::seconds failure_window{600};  // the limits below count the events of this time
  std::size_t failures_per_name = 10;        // wrong passwords for one name from one address
  std::size_t failures_per_account = 20;     // wrong passwords for one name; then its attempts are slowed
  std::size_t failures_per_address = 50;     // wrong passwords for all names from one address
  std::size_t enrolments_per_address = 30;
  std::size_t refusals_per_address = 30;  // refused log-ins of agents that the audit trail records
  std::size_t cuts_per_machine = 10;      // closed connections of one machine at representatives' requests
  std::size_t resumes_per_machine = 200;  // of the sessions with one machine
  std::size_t changes_of_steering = 50;   // of one machine, at the requests of one person
  std::size_t renames_per_machine = 10;   // new names that an agent sends
  std::size_t log_ins_per_machine = 60;   // log-ins of one machine; an agent that is held back needs fewer
  std::size_t counted_keys = 10'000;      // largest number of names and addresses that a counter remembers
};

}  // namespace vlk::relay
