// What the relay's program is to do: the result of its command line, its environment and its configuration
// file.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "relay/storage/trail/check/command.h"

namespace vlk::relay {

enum class Action {
  Serve,
  Help,
  Version,
  SetPassword,
  AddUser,
  RemoveUser,
  OpenEnrolment,
  Check,
  Backup,
  Restore,
  Authority,
  VerifyTrail
};

struct Options {
  Action action = Action::Serve;
  std::string user;                 // for SetPassword, AddUser and RemoveUser
  unsigned short minutes = 0;       // for OpenEnrolment
  unsigned short machines = 0;      // for OpenEnrolment: the largest number of new machines; 0 means any
  std::string role;                 // for AddUser: the name of a role; default: "representative"
  std::string file;                 // for Backup and Restore
  bool replace = false;             // for Restore: set the data that exists aside
  std::string step;                 // for Authority: "prepare" or "renew"
  TrailCall trail;                  // for VerifyTrail
  std::string config;               // the configuration file that was read; empty for none
  unsigned short login_hours = 12;  // how long a log-in lasts
  unsigned short idle_minutes = 0;  // how long a log-in lasts without use; 0 means any time
  std::string address = "0.0.0.0";  // the IP address to listen on
  unsigned short port = 8443;       // 0 means any free port
  std::string data = "vantelink-data";
  std::size_t spool_mib = 2048;      // MiB on the disk for the downloads of one session
  std::size_t spools_mib = 8192;     // the same for all sessions together
  std::size_t hold_s = 120;          // seconds that a session waits for a browser that disconnected
  std::size_t consent_s = 30;        // seconds that a machine's user has to answer a request
  std::size_t connections = 12800;   // largest number of connections
  std::size_t enrolments = 30;       // enrolments of one source in ten minutes
  std::size_t log_ins = 10;          // wrong passwords for one name from one source in ten minutes
  std::vector<std::string> proxies;  // addresses and networks of trusted proxies
  bool proxy_protocol = false;       // the proxies send the PROXY protocol, version 2
  std::string proxy_header;          // the header in which the proxies name the source
  std::string console;               // folder of the console's files
  std::string updates;               // folder of the agents' updates; default: the folder "updates" in `data`
  std::string update_key;            // PEM file of the public key that verifies updates; none: empty
  std::vector<std::string> hosts;    // names of the relay's own certificate; default: "localhost"
  std::string log_format = "text";   // "text" or "json"
  std::string database;              // URL of a PostgreSQL database; empty for the file in the data folder
  std::string relay_name;            // among the relays that share the database; empty for a single relay
  std::string relay_address;         // where browsers reach this relay, if several share the database
  std::string metrics;               // ADDRESS:PORT of the port for operators; empty for none
  std::string trail_log;     // file to which the rows of the trail are copied as JSON lines; empty for none
  std::string trail_syslog;  // socket or HOST:PORT of syslog for the rows of the trail; empty for none
  std::string certificate;   // PEM file; `certificate` and `key` are both given or both empty
  std::string key;
};

// The value of a variable of the environment; nothing if it is not set.
using Environment = std::function<std::optional<std::string>(const std::string& name)>;

// Reads the arguments after the program's name, the environment, and the configuration file that one of them
// names. A setting of the command line replaces one of the environment, and that one of the file. If
// something is invalid, returns false and puts one sentence into `problem`, which says where the value came
// from. Without `environment` no variable is read.
[[nodiscard]] bool parse_options(const std::vector<std::string>& arguments, Options& options,
                                 std::string& problem, const Environment& environment = {});

}  // namespace vlk::relay
