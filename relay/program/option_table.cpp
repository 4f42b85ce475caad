// The table of all options.
#include "relay/program/option_table.h"

#include <array>

#include "relay/program/setters.h"

namespace vlk::relay {
namespace {

using Kind = OptionRule::Kind;

std::span<const OptionRule> serving() {
  static const OptionRule rules[] = {
      {"port", "N", "TCP port for agents and browsers; default 8443; 0 means any free port", "8443",
       Kind::Value, short_setter(&Options::port, 0, "a number")},
      {"address", "ADDRESS",
       "IP address to listen on; default 0.0.0.0, which means all of IPv4; :: means IPv6 and IPv4",
       "\"0.0.0.0\"", Kind::Value, text_setter(&Options::address)},
      {"data", "DIR",
       "folder of the database and the relay's own certificate; created if it is missing; default "
       "./vantelink-data",
       "\"vantelink-data\"", Kind::Value, text_setter(&Options::data)},
      {"console", "DIR", "folder of the console's files; default the console in the program",
       "\"/usr/share/vantelink/console\"", Kind::Value, text_setter(&Options::console)},
      {"updates", "DIR",
       "folder of version.json and the installers for agents; default the folder \"updates\" in the data "
       "folder",
       "\"/var/lib/vantelink/updates\"", Kind::Value, text_setter(&Options::updates)},
      {"update-key", "FILE",
       "public key, PEM, that verifies the signed manifest in the folder of updates; without it no update is "
       "offered",
       "\"/etc/vantelink/update-key.pub.pem\"", Kind::Value, text_setter(&Options::update_key)},
      {"consent", "SECONDS",
       "how long a machine's user has to answer a request for a session; default 30, at most 600", "30",
       Kind::Value, number_setter(&Options::consent_s, 1, 600)},
      {"hold", "SECONDS",
       "how long a session is held for a browser that lost its connection; default 120, at most 3600; 0 ends "
       "the session at once",
       "120", Kind::Value, number_setter(&Options::hold_s, 0, 3600)},
      {"spool", "MIB",
       "disk space for the downloads of one session, whose browser is away or slow; default 2048; a download "
       "that does not fit ends with an error",
       "2048", Kind::Value, number_setter(&Options::spool_mib, 16, 1'048'576)},
      {"spools", "MIB",
       "the same for all sessions together; default 8192; a session gets no more than what is then left for "
       "the others",
       "8192", Kind::Value, number_setter(&Options::spools_mib, 32, 16'777'216)},
      {"trail-log", "FILE",
       "copy the audit trail to this file as JSON lines; after 64 MiB the file becomes FILE.1, and FILE.1 to "
       "FILE.8 are kept; SIGHUP opens the file again",
       "\"/var/log/vantelink/trail.jsonl\"", Kind::Value, text_setter(&Options::trail_log)},
      {"trail-syslog", "TO",
       "copy the audit trail to syslog by RFC 5424; TO is a socket such as /dev/log, or HOST:PORT for UDP",
       "\"/dev/log\"", Kind::Value, text_setter(&Options::trail_syslog)},
  };
  return rules;
}

std::span<const OptionRule> cluster() {
  static const OptionRule rules[] = {
      {"database", "URL",
       "PostgreSQL database that takes the place of the file in the data folder, such as "
       "postgresql://relay@db.example.org/relay; a URL with a password belongs into the configuration file "
       "or "
       "the environment, where other users cannot read it",
       "\"postgresql://relay@db.example.org/relay\"", Kind::Value, database_setter()},
      {"relay-name", "NAME",
       "name of this relay among several that share the database; SIGUSR1 moves its machines to the others",
       "\"north\"", Kind::Value, text_setter(&Options::relay_name)},
      {"relay-address", "URL",
       "where browsers reach this relay, such as https://north.relay.example.org; needed with --relay-name",
       "\"https://north.relay.example.org\"", Kind::Value, address_setter()},
  };
  return rules;
}

std::span<const OptionRule> monitoring() {
  static const OptionRule rules[] = {
      {"metrics", "ADDRESS:PORT",
       "answer /healthz, /readyz and /metrics on this port, by plain HTTP and without a log-in; the address "
       "belongs to this host or a private network",
       "\"127.0.0.1:9464\"", Kind::Value, metrics_setter()},
      {"log-format", "FORMAT",
       "how the lines of the log are written: text, or json with one object a line; default text", "\"text\"",
       Kind::Value, log_format_setter()},
  };
  return rules;
}

std::span<const OptionRule> log_ins() {
  static const OptionRule rules[] = {
      {"login-hours", "N", "how long a log-in lasts, unless the console's settings say otherwise; default 12",
       "12", Kind::Value, short_setter(&Options::login_hours, 1, "a number of hours")},
      {"idle-minutes", "N", "how long a log-in lasts without use; default 0, which means any time", "0",
       Kind::Value, idle_setter()},
  };
  return rules;
}

std::span<const OptionRule> proxies() {
  static const OptionRule rules[] = {
      {"trusted-proxy", "ADDRESS[/BITS]",
       "address or network of a proxy whose word about the source is believed; may be repeated",
       "[\"10.0.0.0/8\", \"::1\"]", Kind::List, proxy_setter()},
      {"proxy-protocol", "", "the proxies begin each connection with the PROXY protocol, version 2", "true",
       Kind::Flag, flag_setter(&Options::proxy_protocol)},
      {"proxy-header", "NAME",
       "the proxies name the source in this header of each request, such as X-Forwarded-For",
       "\"X-Forwarded-For\"", Kind::Value, text_setter(&Options::proxy_header)},
  };
  return rules;
}

std::span<const OptionRule> bounds() {
  static const OptionRule rules[] = {
      {"connections", "N",
       "largest number of connections; default 12800. The relay needs a file descriptor for each", "12800",
       Kind::Value, number_setter(&Options::connections, 64, 1'000'000)},
      {"enrolments", "N", "machines that one address may enrol in ten minutes; default 30", "30", Kind::Value,
       number_setter(&Options::enrolments, 1, 1'000'000)},
      {"log-ins", "N", "wrong passwords for one name from one address in ten minutes; default 10", "10",
       Kind::Value, number_setter(&Options::log_ins, 1, 1'000'000)},
  };
  return rules;
}

std::span<const OptionRule> certificate() {
  static const OptionRule rules[] = {
      {"cert", "FILE", "certificate chain, PEM; needs --key", "\"/etc/vantelink/relay-cert.pem\"",
       Kind::Value, text_setter(&Options::certificate)},
      {"key", "FILE", "private key of the certificate, PEM", "\"/etc/vantelink/relay-key.pem\"", Kind::Value,
       text_setter(&Options::key)},
      {"host", "NAME",
       "name or address in the relay's own certificate; default localhost; may be repeated; agents and "
       "browsers must use one of these names",
       "[\"localhost\"]", Kind::List, host_setter()},
  };
  return rules;
}

std::span<const OptionRule> people() {
  static const OptionRule rules[] = {
      {"add-user", "NAME", "add a person", "", Kind::Action, user_setter(Action::AddUser)},
      {"role", "ROLE",
       "the new person's role: administrator, representative or auditor; default representative, who has no "
       "rights until an administrator gives some",
       "", Kind::Action, role_setter()},
      {"set-password", "NAME", "set a person's password and end all of the person's log-ins", "",
       Kind::Action, user_setter(Action::SetPassword)},
      {"remove-user", "NAME", "remove a person", "", Kind::Action, user_setter(Action::RemoveUser)},
  };
  return rules;
}

std::span<const OptionRule> machines() {
  static const OptionRule rules[] = {
      {"open-enrolment", "MINUTES",
       "approve new machines at once for so many minutes; at other times they wait until an administrator "
       "approves them in the console",
       "", Kind::Action, window_setter()},
      {"machines", "N", "at most so many machines", "", Kind::Action,
       short_setter(&Options::machines, 1, "a number")},
  };
  return rules;
}

std::span<const OptionRule> configuration() {
  static const OptionRule rules[] = {
      {"config", "FILE",
       "read settings from this file: lines such as port = 443, named as the options above; a setting of the "
       "command line replaces one of the environment, and that one of the file",
       "", Kind::Action, text_setter(&Options::config)},
  };
  return rules;
}

}  // namespace

std::span<const OptionGroup> option_groups() {
  static const OptionGroup groups[] = {
      {"Serving", "", serving()},
      {"Log-ins", "", log_ins()},
      {"Behind a proxy", "", proxies()},
      {"Limits", "", bounds()},
      {"PostgreSQL and several relays",
       "Relays that share a PostgreSQL database lead browsers to the one that has the machine.", cluster()},
      {"Monitoring", "", monitoring()},
      {"Certificate",
       "Without --cert the first start makes a certificate authority for the names of --host in the data "
       "folder. Machines trust its certificate, relay-cert.pem; the certificate that it signs for the relay "
       "renews itself.",
       certificate()},
      {"Configuration",
       "Each option above can also be set in the environment: VANTELINK_RELAY_PORT for --port, and so on. A "
       "list has commas there.",
       configuration()},
      {"People (each option changes the database and exits; the relay need not be stopped for it)",
       "--add-user and --set-password read the password from standard input; for an empty line they print a "
       "random one.",
       people()},
      {"Machines (changes the database and exits; the relay need not be stopped for it)", "", machines()},
  };
  return groups;
}

const OptionRule* find_option(const std::string& name) {
  for (const OptionGroup& group : option_groups()) {
    for (const OptionRule& rule : group.rules) {
      if (name == rule.name) return &rule;
    }
  }
  return nullptr;
}

std::string variable_of(const std::string& name) {
  std::string variable = "VANTELINK_RELAY_";
  for (const char c : name)
    variable += c == '-' ? '_' : static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  return variable;
}

}  // namespace vlk::relay
