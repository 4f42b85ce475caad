// The relay's command line.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

enum class Action { Serve, Help, Version, SetPassword, AddUser, RemoveUser };

struct Options {
  Action action = Action::Serve;
  std::string user;                 // for SetPassword, AddUser and RemoveUser
  std::string address = "0.0.0.0";  // the IP address to listen on
  unsigned short port = 8443;       // 0 means any free port
  std::string data = "vantelink-data";
  unsigned short consent_s = 120;  // seconds that a machine's user has to answer a request
  std::string console;             // folder of the console's files
  std::string updates;             // folder of the agents' updates; default: the folder "updates" in `data`
  std::vector<std::string> hosts;  // names in the self-signed certificate; default: "localhost"
  std::string certificate;         // PEM file; `certificate` and `key` are both given or both empty
  std::string key;
};

// The output of --help.
[[nodiscard]] std::string help_text();

// Reads the arguments after the program's name. If they are invalid, returns false and puts one sentence into
// `problem`.
[[nodiscard]] bool parse_options(const std::vector<std::string>& arguments, Options& options,
                                 std::string& problem);

// False for an empty name, a name over 64 bytes, and a name with control characters, quotes, backslashes, or
// a space at its start or end. Names are
// sent to agents, whose JSON reader supports few escapes.
[[nodiscard]] bool valid_user_name(const std::string& name);

}  // namespace vlk::relay
