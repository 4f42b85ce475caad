// The command line of the relay.
#include "relay/options.h"

#include <charconv>
#include <functional>
#include <map>

namespace vlk::relay {
namespace {

bool parse_number(const std::string& text, unsigned short& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

bool take_user(Options& options, Action action, const std::string& value, std::string& problem) {
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

using Taker = std::function<bool(Options&, const std::string& value, std::string& problem)>;

Taker text_option(std::string Options::*field) {
  return [field](Options& options, const std::string& value, std::string&) {
    options.*field = value;
    return true;
  };
}

Taker user_option(Action action) {
  return [action](Options& options, const std::string& value, std::string& problem) {
    return take_user(options, action, value, problem);
  };
}

const std::map<std::string, Taker>& takers() {
  static const std::map<std::string, Taker> table = {
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
  return R"(vantelink-relay: connects agents with the representatives who support them

  vantelink-relay [options]

Serving
  --port N             TCP port for everything, 8443 if not given; 0 picks a free one
  --address ADDRESS    address to listen on, 0.0.0.0 if not given
  --data DIR           folder of the database and the self-made certificate, ./vantelink-data if not given;
                       made on the first start
  --console DIR        folder of the console's files, if not the built-in one
  --updates DIR        folder of version.json and the installers that agents are offered; updates in the data
                       folder if not given
  --consent SECONDS    how long a machine's user has to answer a request before it is withdrawn, 120 if not
                       given

Certificate
  --cert FILE          certificate chain and private key, PEM; without them the relay makes a self-signed
  --key FILE           certificate in its data folder on the first start and keeps using it
  --host NAME          name or address that the self-made certificate is for, localhost if not given; may be
                       repeated; agents and browsers must use one of these names

Representatives (each does its work and ends; a running relay need not be stopped)
  --add-user NAME      add a representative
  --set-password NAME  set a representative's password and end all of their logins
                       both read the password from standard input; an empty line makes and prints one
  --remove-user NAME   remove a representative

  --help               this text

The first start adds the representative "admin" and prints a random password for it, once.
)";
}

bool valid_user_name(const std::string& name) {
  if (name.empty() || name.size() > 64 || name.front() == ' ' || name.back() == ' ') return false;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == '"' || c == '\\') return false;
  }
  return true;
}

bool parse_options(const std::vector<std::string>& arguments, Options& options, std::string& problem) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help" || name == "-h") {
      options.action = Action::Help;
      return true;
    }
    const auto taker = takers().find(name);
    if (taker == takers().end()) {
      problem = "There is no option \"" + name + "\"; --help lists them.";
      return false;
    }
    if (i + 1 == arguments.size() || arguments[i + 1].empty()) {
      problem = name + " needs a value.";
      return false;
    }
    if (!taker->second(options, arguments[++i], problem)) return false;
  }
  if (options.certificate.empty() != options.key.empty()) {
    problem = "--cert and --key belong together.";
    return false;
  }
  if (options.updates.empty()) options.updates = options.data + "/updates";
  if (options.hosts.empty()) options.hosts.push_back("localhost");
  return true;
}

}  // namespace vlk::relay
