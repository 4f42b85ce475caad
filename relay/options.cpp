// Reads the relay's command line.
#include "relay/options.h"

#include <charconv>
#include <functional>
#include <map>

#include "relay/base/log.h"
#include "relay/metrics/operators_port.h"
#include "relay/net/source/proxies.h"
#include "relay/people/people.h"

namespace vlk::relay {
namespace {

bool parse_number(const std::string& text, unsigned short& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

// Sets what the program does in place of serving. Only one such option can be given.
bool set_action(Options& options, Action action, std::string& problem) {
  if (options.action != Action::Serve) {
    problem = "Only one of --set-password, --add-user, --remove-user and --open-enrolment can be given.";
    return false;
  }
  options.action = action;
  return true;
}

bool set_user(Options& options, Action action, const std::string& value, std::string& problem) {
  if (!valid_person_name(value)) {
    problem = "\"" + value + "\" cannot be the name of a person.";
    return false;
  }
  options.user = value;
  return set_action(options, action, problem);
}

// Stores the value of one option. If the value is invalid, returns false and puts a sentence into `problem`.
using Setter = std::function<bool(Options&, const std::string& value, std::string& problem)>;

Setter text_option(std::string Options::*field) {
  return [field](Options& options, const std::string& value, std::string&) {
    options.*field = value;
    return true;
  };
}

Setter user_option(Action action) {
  return [action](Options& options, const std::string& value, std::string& problem) {
    return set_user(options, action, value, problem);
  };
}

Setter number_option(const char* name, std::size_t Options::*field, std::size_t least, std::size_t most) {
  return [=](Options& options, const std::string& value, std::string& problem) {
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, options.*field);
    if (error == std::errc() && stop == end && options.*field >= least && options.*field <= most) return true;
    problem = std::string(name) + " needs a number from " + std::to_string(least) + " to " +
              std::to_string(most) + ", not \"" + value + "\".";
    return false;
  };
}

// A number from `least` to 65535. `what` is the text before "from", such as "a number of minutes".
Setter short_option(const char* name, unsigned short Options::*field, unsigned short least,
                    const char* what) {
  return [=](Options& options, const std::string& value, std::string& problem) {
    if (parse_number(value, options.*field) && options.*field >= least) return true;
    problem = std::string(name) + " needs " + what + " from " + std::to_string(least) + " to 65535, not \"" +
              value + "\".";
    return false;
  };
}

bool set_proxy(Options& options, const std::string& value, std::string& problem) {
  options.proxies.push_back(value);
  if (parse_network(value)) return true;
  problem = "--trusted-proxy needs an IP address, or a network such as 10.0.0.0/8, not \"" + value + "\".";
  return false;
}

bool set_window(Options& options, const std::string& value, std::string& problem) {
  static const Setter minutes = short_option("--open-enrolment", &Options::minutes, 1, "a number of minutes");
  return set_action(options, Action::OpenEnrolment, problem) && minutes(options, value, problem);
}

bool set_role(Options& options, const std::string& value, std::string& problem) {
  options.role = value;
  if (role_of(value)) return true;
  problem = "--role needs administrator, representative or auditor, not \"" + value + "\".";
  return false;
}

bool set_idle_minutes(Options& options, const std::string& value, std::string& problem) {
  if (parse_number(value, options.idle_minutes) && options.idle_minutes != 1) return true;
  problem = "--idle-minutes needs a number of minutes from 2 to 65535, or 0, not \"" + value + "\".";
  return false;
}

bool add_host(Options& options, const std::string& value, std::string&) {
  options.hosts.push_back(value);
  return true;
}

bool set_log_format(Options& options, const std::string& value, std::string& problem) {
  options.log_format = value;
  if (log_format_of(value)) return true;
  problem = "--log-format needs text or json, not \"" + value + "\".";
  return false;
}

bool set_metrics(Options& options, const std::string& value, std::string& problem) {
  options.metrics = value;
  if (parse_operators_address(value)) return true;
  problem = "--metrics needs an IP address and a port, such as 127.0.0.1:9464, not \"" + value + "\".";
  return false;
}

const std::map<std::string, Setter>& setters() {
  static const std::map<std::string, Setter> table = {
      {"--address", text_option(&Options::address)},
      {"--port", short_option("--port", &Options::port, 0, "a number")},
      {"--data", text_option(&Options::data)},
      {"--console", text_option(&Options::console)},
      {"--updates", text_option(&Options::updates)},
      {"--update-key", text_option(&Options::update_key)},
      {"--consent", number_option("--consent", &Options::consent_s, 1, 600)},
      {"--hold", number_option("--hold", &Options::hold_s, 0, 3600)},
      {"--spool", number_option("--spool", &Options::spool_mib, 16, 1'048'576)},
      {"--spools", number_option("--spools", &Options::spools_mib, 32, 16'777'216)},
      {"--log-format", set_log_format},
      {"--metrics", set_metrics},
      {"--trail-log", text_option(&Options::trail_log)},
      {"--trail-syslog", text_option(&Options::trail_syslog)},
      {"--cert", text_option(&Options::certificate)},
      {"--key", text_option(&Options::key)},
      {"--host", add_host},
      {"--trusted-proxy", set_proxy},
      {"--proxy-header", text_option(&Options::proxy_header)},
      {"--connections", number_option("--connections", &Options::connections, 64, 1'000'000)},
      {"--enrolments", number_option("--enrolments", &Options::enrolments, 1, 1'000'000)},
      {"--log-ins", number_option("--log-ins", &Options::log_ins, 1, 1'000'000)},
      {"--set-password", user_option(Action::SetPassword)},
      {"--add-user", user_option(Action::AddUser)},
      {"--remove-user", user_option(Action::RemoveUser)},
      {"--role", set_role},
      {"--open-enrolment", set_window},
      {"--machines", short_option("--machines", &Options::machines, 1, "a number")},
      {"--login-hours", short_option("--login-hours", &Options::login_hours, 1, "a number of hours")},
      {"--idle-minutes", set_idle_minutes},
  };
  return table;
}

constexpr char kHelp[] = R"(vantelink-relay: connects representatives with the machines that they support

  vantelink-relay [options]

Serving
  --port N             TCP port for agents and browsers; default 8443; 0 means any free port
  --address ADDRESS    IP address to listen on; default 0.0.0.0
  --data DIR           folder of the database and the self-signed certificate; created if it is missing;
                       default ./vantelink-data
  --console DIR        folder of the console's files; default the one that was built in
  --updates DIR        folder of version.json and the installers for agents; default the folder "updates" in
                       the data folder
  --update-key FILE    public key, PEM, that verifies the signed manifest in the folder of updates; without it
                       no update is offered
  --consent SECONDS    how long a machine's user has to answer a request for a session; default 30, at most
                       600
  --hold SECONDS       how long a session is held for a browser that lost its connection; default 120, at most
                       3600; 0 ends the session at once
  --spool MIB          disk space for the downloads of one session, whose browser is away or slow; default
                       2048; a download that does not fit ends with an error
  --spools MIB         the same for all sessions together; default 8192; a session gets no more than what is
                       then left for the others
  --trail-log FILE     copy the audit trail to this file as JSON lines; after 64 MiB the file becomes FILE.1, and
                       FILE.1 to FILE.8 are kept; SIGHUP opens the file again
  --trail-syslog TO    copy the audit trail to syslog by RFC 5424; TO is a socket such as /dev/log, or HOST:PORT for UDP

  --metrics ADDRESS:PORT
                       answer /healthz, /readyz and /metrics on this port, by plain HTTP and without a log-in;
                       the address belongs to this host or a private network, such as 127.0.0.1:9464
  --log-format FORMAT  how the lines of the log are written: text, or json with one object a line; default text

  --login-hours N      how long a log-in lasts, unless the console's settings say otherwise; default 12
  --idle-minutes N     how long a log-in lasts without use; default 0, which means any time

Behind a proxy
  --trusted-proxy ADDRESS[/BITS]
                       address or network of a proxy whose word about the source is believed; may be repeated
  --proxy-protocol     the proxies begin each connection with the PROXY protocol, version 2
  --proxy-header NAME  the proxies name the source in this header of each request, such as X-Forwarded-For

Limits
  --connections N      largest number of connections; default 8192. The relay needs a file descriptor for each
  --enrolments N       machines that one address may enrol in ten minutes; default 30
  --log-ins N          wrong passwords for one name from one address in ten minutes; default 10

Certificate
  --cert FILE          certificate chain, PEM; needs --key
  --key FILE           private key of the certificate, PEM
  --host NAME          name or address in the self-signed certificate; default localhost; may be repeated;
                       agents and browsers must use one of these names

Without --cert the first start makes a self-signed certificate in the data folder, and later starts use it.

People (each option changes the database and exits; the relay need not be stopped for it)
  --add-user NAME      add a person
  --role ROLE          the new person's role: administrator, representative or auditor; default
                       representative, who has no rights until an administrator gives some
  --set-password NAME  set a person's password and end all of the person's log-ins
  --remove-user NAME   remove a person

Machines (changes the database and exits; the relay need not be stopped for it)
  --open-enrolment MINUTES
                       approve new machines at once for so many minutes; at other times they wait until an
                       administrator approves them in the console
  --machines N         at most so many machines

--add-user and --set-password read the password from standard input; for an empty line they print a random
one.

Audit trail (checks that no row was changed or removed; exit code 0 if none was, 1 if one was, 2 if it cannot be read)
  verify-trail FILE [--key FILE]        check an export, or a file of --trail-log
  verify-trail --data DIR [--key FILE]  check the database of a data folder

Information
  --help               print this text and exit
  --version            print the version and exit

The first start adds the administrator "admin" with a one-time password, which must be changed at the first
log-in. It prints the password, or writes it to the file "first-password" in the data folder if the output is
not a terminal.
)";

}  // namespace

std::string help_text() {
  return kHelp;
}

bool parse_options(const std::vector<std::string>& arguments, Options& options, std::string& problem) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help" || name == "-h" || name == "--version") {
      options.action = name == "--version" ? Action::Version : Action::Help;
      return true;
    }
    if (name == "--proxy-protocol") {
      options.proxy_protocol = true;
      continue;
    }
    const auto setter = setters().find(name);
    if (setter == setters().end()) {
      problem = "There is no option \"" + name + "\"; --help lists the options.";
      return false;
    }
    if (i + 1 == arguments.size() || arguments[i + 1].empty()) {
      problem = name + " needs a value.";
      return false;
    }
    if (!setter->second(options, arguments[++i], problem)) return false;
  }
  if (options.certificate.empty() != options.key.empty()) {
    problem = "--cert and --key must be given together.";
    return false;
  }
  if (options.machines > 0 && options.action != Action::OpenEnrolment) {
    problem = "--machines can only be given with --open-enrolment.";
    return false;
  }
  if (!options.role.empty() && options.action != Action::AddUser) {
    problem = "--role can only be given with --add-user.";
    return false;
  }
  const bool says_how = options.proxy_protocol || !options.proxy_header.empty();
  if (options.proxies.empty() == says_how || (options.proxy_protocol && !options.proxy_header.empty())) {
    problem =
        "--trusted-proxy needs either --proxy-protocol or --proxy-header, and these need --trusted-proxy.";
    return false;
  }
  if (options.updates.empty()) options.updates = options.data + "/updates";
  if (options.hosts.empty()) options.hosts.emplace_back("localhost");
  return true;
}

}  // namespace vlk::relay
