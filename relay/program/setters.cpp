// Checks the values of settings.
#include "relay/program/setters.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "relay/base/log.h"
#include "relay/metrics/operators_port.h"
#include "relay/net/source/proxies.h"
#include "relay/people/people.h"
#include "relay/storage/engine/address.h"

namespace vlk::relay {
namespace {

template <class Number>
bool parse_number(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

bool set_action(Options& options, Action action, std::string& problem) {
  if (options.action != Action::Serve) {
    problem = "Only one of --set-password, --add-user, --remove-user and --open-enrolment can be given.";
    return false;
  }
  options.action = action;
  return true;
}

}  // namespace

Setter text_setter(std::string Options::*field) {
  return [field](Options& options, const std::string& value, const std::string&, std::string&) {
    options.*field = value;
    return true;
  };
}

Setter number_setter(std::size_t Options::*field, std::size_t least, std::size_t most) {
  return [=](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    std::size_t number = 0;
    if (parse_number(value, number) && number >= least && number <= most) {
      options.*field = number;
      return true;
    }
    problem = where + " needs a number from " + std::to_string(least) + " to " + std::to_string(most) +
              ", not \"" + value + "\".";
    return false;
  };
}

Setter short_setter(unsigned short Options::*field, unsigned short least, const char* what) {
  return [=](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    if (parse_number(value, options.*field) && options.*field >= least) return true;
    problem =
        where + " needs " + what + " from " + std::to_string(least) + " to 65535, not \"" + value + "\".";
    return false;
  };
}

Setter idle_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    if (parse_number(value, options.idle_minutes) && options.idle_minutes != 1) return true;
    problem = where + " needs a number of minutes from 2 to 65535, or 0, not \"" + value + "\".";
    return false;
  };
}

Setter host_setter() {
  return [](Options& options, const std::string& value, const std::string&, std::string&) {
    options.hosts.push_back(value);
    return true;
  };
}

Setter proxy_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.proxies.push_back(value);
    if (parse_network(value)) return true;
    problem = where + " needs an IP address, or a network such as 10.0.0.0/8, not \"" + value + "\".";
    return false;
  };
}

Setter flag_setter(bool Options::*field) {
  return [field](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.*field = value == "true";
    if (value == "true" || value == "false") return true;
    problem = where + " needs true or false, not \"" + value + "\".";
    return false;
  };
}

Setter user_setter(Action action) {
  return [action](Options& options, const std::string& value, const std::string&, std::string& problem) {
    if (!valid_person_name(value)) {
      problem = "\"" + value + "\" cannot be the name of a person.";
      return false;
    }
    options.user = value;
    return set_action(options, action, problem);
  };
}

Setter database_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.database = value;
    if (is_postgresql(value)) return true;
    problem = where + " needs a URL that begins with postgresql://, not \"" + value +
              "\"; a database in a file is in the folder that --data names.";
    return false;
  };
}

Setter address_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.relay_address = value;
    constexpr std::string_view kScheme = "https://";
    const std::string rest = value.substr(std::min(value.size(), kScheme.size()));
    if (value.starts_with(kScheme) && !rest.empty() && rest.find_first_of("/?# \"") == std::string::npos)
      return true;
    problem = where + " needs an address such as https://relay.example.org:8443, without a path, not \"" +
              value + "\".";
    return false;
  };
}

Setter metrics_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.metrics = value;
    if (parse_operators_address(value)) return true;
    problem = where + " needs an IP address and a port, such as 127.0.0.1:9464, not \"" + value + "\".";
    return false;
  };
}

Setter log_format_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.log_format = value;
    if (log_format_of(value)) return true;
    problem = where + " needs text or json, not \"" + value + "\".";
    return false;
  };
}

Setter role_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    options.role = value;
    if (role_of(value)) return true;
    problem = where + " needs administrator, representative or auditor, not \"" + value + "\".";
    return false;
  };
}

Setter window_setter() {
  return [](Options& options, const std::string& value, const std::string& where, std::string& problem) {
    static const Setter minutes = short_setter(&Options::minutes, 1, "a number of minutes");
    return set_action(options, Action::OpenEnrolment, problem) && minutes(options, value, where, problem);
  };
}

}  // namespace vlk::relay
