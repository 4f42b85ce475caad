// The relay's program: reads the options, prepares the database, and serves until a signal ends it.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/signal_set.hpp>

#include "relay/base/secrets.h"
#include "relay/base/version.h"
#include "relay/net/descriptors.h"
#include "relay/net/private_files.h"
#include "relay/program/authority/command.h"
#include "relay/program/backup/command.h"
#include "relay/program/check/command.h"
#include "relay/program/folder/data_folder.h"
#include "relay/program/help.h"
#include "relay/program/options.h"
#include "relay/server.h"
#include "relay/storage/follow/sinks.h"
#include "relay/storage/trail/check/command.h"

namespace {

using namespace vlk::relay;

constexpr int kUsageError = 2;

// Reads the password from one line of standard input. If the line is empty, makes a random password and
// prints it.
std::string read_password(const std::string& user) {
  std::string password;
  std::getline(std::cin, password);
  if (!password.empty()) {
    const std::string fault = password_fault(password);
    if (!fault.empty()) throw std::runtime_error("a password " + fault + "; nothing was changed");
    return password;
  }
  password = random_password();
  std::cout << "The password of \"" << user << "\" is " << password << "\n";
  return password;
}

int change_user(const Options& options, Store& store) {
  bool done = false;
  switch (options.action) {
    case Action::OpenEnrolment:
      store.open_enrolment(options.minutes, options.machines == 0
                                                ? std::nullopt
                                                : std::optional<std::int64_t>(options.machines));
      return 0;
    case Action::AddUser:
      done = store.add_user(options.user, hash_password(read_password(options.user)),
                            role_of(options.role).value_or(Role::Representative));
      break;
    case Action::SetPassword:
      done = store.set_password(options.user, hash_password(read_password(options.user)));
      break;
    default:
      done = store.remove_user(options.user);
  }
  if (done) return 0;
  std::cerr << "vantelink-relay: "
            << (options.action == Action::AddUser
                    ? "a person with that name exists already; --set-password changes the password\n"
                    : "there is no person with that name\n");
  return 1;
}

// The first start with a new database adds the administrator "admin" with a one-time password. Logs of
// service managers keep the output of programs, so the password is printed only on a terminal. The file is
// complete before the database is changed, so a start that is cut off in between is repeated by the next one.
void prepare_first_start(const std::string& data, Store& store) {
  if (!store.is_first_start()) return;
  const std::string password = random_password();
  const std::string file = data + "/first-password";
  const bool terminal = ::isatty(STDOUT_FILENO) == 1;
  if (!terminal) write_durably(file, password + '\n', 0600);
  store.add_first_administrator("admin", hash_password(password));
  std::cout << "First start. Log in to the console as \"admin\" with the one-time password "
            << (terminal ? password : "in " + file)
            << "\nIt must be changed at the first log-in; --set-password admin replaces it." << std::endl;
}

// SIGHUP says that another program has moved the files of the trail's log or replaced the certificate.
void reopen_at_hang_up(boost::asio::signal_set& signals, Server& server) {
  signals.async_wait([&](const boost::system::error_code& error, int) {
    if (error) return;
    server.reopen_trail_logs();
    server.reload_certificate();
    reopen_at_hang_up(signals, server);
  });
}

// The database's file or URL.
std::string database_of(const Options& options, const DataFolder& data) {
  return options.database.empty() ? data.database() : options.database;
}

Server::Settings settings_of(const Options& options) {
  Server::Settings settings;
  settings.data = options.data;
  settings.address = options.address;
  settings.port = options.port;
  settings.console = options.console;
  settings.updates = options.updates;
  settings.update_key = options.update_key;
  settings.certificate = {options.certificate, options.key};
  for (const std::string& proxy : options.proxies)
    settings.proxies.push_back(parse_network(proxy).value());
  settings.proxy_protocol = options.proxy_protocol;
  settings.proxy_header = options.proxy_header;
  settings.cluster.name = options.relay_name;
  settings.cluster.address = options.relay_address;
  if (!options.metrics.empty()) settings.operators = parse_operators_address(options.metrics);
  return settings;
}

Limits limits_of(const Options& options) {
  Limits limits;
  limits.login = std::chrono::hours(options.login_hours);
  limits.idle_login = std::chrono::minutes(options.idle_minutes);
  limits.consent = std::chrono::seconds(options.consent_s);
  limits.hold = std::chrono::seconds(options.hold_s);
  limits.spool = std::uint64_t{options.spool_mib} << 20;
  limits.spools = std::uint64_t{options.spools_mib} << 20;
  limits.connections = options.connections;
  limits.enrolments_per_address = options.enrolments;
  limits.failures_per_name = options.log_ins;
  return limits;
}

int serve(const Options& options, const DataFolder& data) {
  const FileLock claim = claim_for_relay(data.path());
  raise_descriptor_limit(options.connections);
  auto store = std::make_unique<Store>(database_of(options, data));
  const Log log(standard_error_sink(), {}, log_format_of(options.log_format).value());
  Server::Settings settings = settings_of(options);
  if (options.certificate.empty()) {
    settings.own = std::make_shared<OwnCertificate>(options.data, options.hosts);
    for (const std::string& remark : settings.own->prepare())
      log.write("", "", remark);
    settings.certificate = settings.own->served();
  }
  require_private(settings.certificate.key, "the private key");
  prepare_first_start(options.data, *store);
  const Limits limits = limits_of(options);
  Server server(settings, std::move(store), log, limits);
  if (!options.trail_log.empty()) server.follow_trail(std::make_unique<TrailLogFile>(options.trail_log));
  if (!options.trail_syslog.empty()) server.follow_trail(std::make_unique<TrailSyslog>(options.trail_syslog));
  boost::asio::signal_set drain_signals(server.context(), SIGUSR1);
  drain_signals.async_wait([&](const boost::system::error_code& error, int) {
    if (!error) server.drain();
  });
  boost::asio::signal_set hang_ups(server.context(), SIGHUP);
  reopen_at_hang_up(hang_ups, server);
  boost::asio::signal_set signals(server.context(), SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code& error, int) {
    if (!error) server.stop();
  });
  std::cout << "vantelink-relay: listening on https://" << options.hosts.front() << ':' << server.port()
            << '/' << std::endl;
  server.run();
  return 0;
}

std::optional<std::string> variable(const std::string& name) {
  // The program has one thread at this time.
  const char* value = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe)
  return value ? std::optional<std::string>(value) : std::nullopt;
}

int run(const Options& options) {
  switch (options.action) {
    case Action::Help:
      std::cout << help_text();
      return 0;
    case Action::Version:
      std::cout << "vantelink-relay " << kRelayVersion << "\n";
      return 0;
    case Action::VerifyTrail:
      return verify_trail_command(options.trail, std::cout, std::cerr);
    case Action::Check:
      return check_command(options, std::cout);
    case Action::Backup:
      backup_command(options, std::cout);
      return 0;
    case Action::Restore:
      restore_command(options, std::cout);
      return 0;
    case Action::Authority:
      authority_command(options, std::cout);
      return 0;
    default:
      break;
  }
  const DataFolder data(options.data);
  if (options.action == Action::Serve) return serve(options, data);
  Store store(database_of(options, data));
  return change_user(options, store);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string problem;
  if (!parse_options({argv + 1, argv + argc}, options, problem, variable)) {
    std::cerr << "vantelink-relay: " << problem << "\n";
    return kUsageError;
  }
  // A write over the limit of a file's size fails like one on a full disk, and does not end the program.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    start_sodium();
    return run(options);
  } catch (const std::exception& failure) {
    std::cerr << "vantelink-relay: " << failure.what() << "\n";
    return 1;
  }
}
