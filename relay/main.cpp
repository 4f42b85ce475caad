// The relay's program: reads the options, prepares the database, and serves until a signal ends it.
#include <filesystem>
#include <iostream>
#include <string>

#include <boost/asio/signal_set.hpp>

#include "relay/base/secrets.h"
#include "relay/base/version.h"
#include "relay/options.h"
#include "relay/server.h"

namespace {

using namespace vlk::relay;

constexpr int kUsageError = 2;

// Creates the data folder if it is missing, readable by its owner only, and returns the path of the database.
std::string database_file(const std::string& data) {
  std::error_code error;
  const bool made = std::filesystem::create_directories(data, error);
  if (error) throw std::runtime_error("cannot create the data folder " + data + ": " + error.message());
  if (made) std::filesystem::permissions(data, std::filesystem::perms::owner_all);
  return data + "/relay.db";
}

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
    case Action::AddUser:
      done = store.add_user(options.user, hash_password(read_password(options.user)));
      break;
    case Action::SetPassword:
      done = store.set_password(options.user, hash_password(read_password(options.user)), {});
      break;
    default:
      done = store.remove_user(options.user);
  }
  if (done) return 0;
  std::cerr << "vantelink-relay: "
            << (options.action == Action::AddUser
                    ? "a representative with that name exists already; --set-password changes the password\n"
                    : "there is no representative with that name\n");
  return 1;
}

// If the database has no representative, adds "admin" and prints its password.
void prepare_first_start(Store& store) {
  if (store.has_users()) return;
  const std::string password = random_password();
  store.add_user("admin", hash_password(password));
  std::cout << "First start. Log in to the console as \"admin\" with the password " << password
            << "\nThe password is not shown again; --set-password admin replaces it." << std::endl;
}

int serve(const Options& options, Store& store) {
  const Log log(standard_error_sink());
  Server::Settings settings{
      options.address, options.port, options.console, options.updates, {options.certificate, options.key}};
  if (settings.console.empty()) settings.console = VANTELINK_CONSOLE_DIR;
  if (options.certificate.empty()) {
    std::string remark;
    settings.certificate = self_made_certificate(options.data, options.hosts, remark);
    if (!remark.empty()) log.write("", "", remark);
  }
  prepare_first_start(store);
  Limits limits;
  limits.consent = std::chrono::seconds(options.consent_s);
  Server server(settings, store, log, limits);
  boost::asio::signal_set signals(server.context(), SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code& error, int) {
    if (!error) server.stop();
  });
  std::cout << "vantelink-relay: listening on https://" << options.hosts.front() << ':' << server.port()
            << '/' << std::endl;
  server.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string problem;
  if (!parse_options({argv + 1, argv + argc}, options, problem)) {
    std::cerr << "vantelink-relay: " << problem << "\n";
    return kUsageError;
  }
  if (options.action == Action::Help) {
    std::cout << help_text();
    return 0;
  }
  if (options.action == Action::Version) {
    std::cout << "vantelink-relay " << kRelayVersion << "\n";
    return 0;
  }
  try {
    start_sodium();
    Store store(database_file(options.data));
    return options.action == Action::Serve ? serve(options, store) : change_user(options, store);
  } catch (const std::exception& failure) {
    std::cerr << "vantelink-relay: " << failure.what() << "\n";
    return 1;
  }
}
