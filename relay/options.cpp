// Reads the relay's command line.
#include "relay/options.h"

#include <charconv>
#include <functional>
#include <map>

#include "relay/base/text.h"

namespace vlk::relay {
namespace {

bool parse_number(const std::string& text, unsigned short& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

bool set_user(Options& options, Action action, const std::string& value, std::string& problem) {
  if (!valid_user_name(value)) {
    problem = "\"" + value + "\" cannot be the name of a representative.";
    return false;
  }
  if (options.action != Action::Serve) {
    problem = "Only one of --set-password, --add-user and --remove-user can be given.";
    return false;
  }
  options.action = action;
  options.user = value;
  return true;
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

const std::map<std::string, Setter>& setters() {
  static const std::map<std::string, Setter> table = {
      {"--address", text_option(&Options::address)},
      {"--data", text_option(&Options::data)},
      {"--console", text_option(&Options::console)},
      {"--updates", text_option(&Options::updates)},
      {"--cert", text_option(&Options::certificate)},
      {"--key", text_option(&Options::key)},
      {"--set-password", user_option(Action::SetPassword)},
      {"--add-user", user_option(Action::AddUser)},
      {"--remove-user", user_option(Action::RemoveUser)},
      {"--host",
       [](Options& options, const std::string& value, std::string&) {
         options.hosts.push_back(value);
         return true;
       }},
      {"--port",
       [](Options& options, const std::string& value, std::string& problem) {
         if (parse_number(value, options.port)) return true;
         problem = "--port needs a number from 0 to 65535, not \"" + value + "\".";
         return false;
       }},
      {"--consent",
       [](Options& options, const std::string& value, std::string& problem) {
         if (parse_number(value, options.consent_s) && options.consent_s > 0) return true;
         problem = "--consent needs a number of seconds from 1 to 65535, not \"" + value + "\".";
         return false;
       }},
  };
  return table;
}

}  // namespace

std::string help_text() {
  return R"(vantelink-relay: connects representatives with the machines that they support

  vantelink-relay [options]

Serving
  --port N             TCP port for agents and browsers; default 8443; 0 means any free port
  --address ADDRESS    IP address to listen on; default 0.0.0.0
  --data DIR           folder of the database and the self-signed certificate; created if it is missing;
                       default ./vantelink-data
  --console DIR        folder of the console's files; default the one that was built in
  --updates DIR        folder of version.json and the installers for agents; default the folder "updates" in
                       the data folder
  --consent SECONDS    how long a machine's user has to answer a request for a session; default 120

Certificate
  --cert FILE          certificate chain, PEM; needs --key
  --key FILE           private key of the certificate, PEM
  --host NAME          name or address in the self-signed certificate; default localhost; may be repeated;
                       agents and browsers must use one of these names

Without --cert the first start makes a self-signed certificate in the data folder, and later starts use it.

Representatives (each option changes the database and exits; the relay need not be stopped for it)
  --add-user NAME      add a representative
  --set-password NAME  set a representative's password and end all of the representative's log-ins
  --remove-user NAME   remove a representative

--add-user and --set-password read the password from standard input; for an empty line they print a random one.

Information
  --help               print this text and exit
  --version            print the version and exit

The first start adds the representative "admin" and prints a random password once.
)";
}

bool valid_user_name(const std::string& name) {
  if (name.empty() || name.size() > 64 || name.front() == ' ' || name.back() == ' ') return false;
  return !has_control(name) && name.find_first_of("\"\\") == std::string::npos;
}

bool parse_options(const std::vector<std::string>& arguments, Options& options, std::string& problem) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help" || name == "-h" || name == "--version") {
      options.action = name == "--version" ? Action::Version : Action::Help;
      return true;
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
  if (options.updates.empty()) options.updates = options.data + "/updates";
  if (options.hosts.empty()) options.hosts.emplace_back("localhost");
  return true;
}

}  // namespace vlk::relay
