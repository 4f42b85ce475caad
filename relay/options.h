// The relay's command line.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

enum class Action { Serve, Help, Version, SetPassword, AddUser, RemoveUser };

struct Options {
  Action action = Action::Serve;
  std::string user;                 // for SetPassword, AddUser and RemoveUser
  std::string address = "0.0.0.0";  // to listen on
  unsigned short port = 8443;       // 0 means any free port
  std::string data = "vantelink-data";
  unsigned short consent_s = 120;  // seconds for a machine's user to answer a request
  std::string console;             // folder of the console's files
  std::string updates;             // folder of the agents' updates; "updates" in `data` when none is given
  std::vector<std::string> hosts;  // of the self-signed certificate; "localhost" when none is given
  std::string certificate;         // PEM files; both or neither
  std::string key;
};

// The output of --help.
[[nodiscard]] std::string help_text();

// Reads the arguments after the program's name. False if they are invalid, with one sentence in `problem`.
[[nodiscard]] bool parse_options(const std::vector<std::string>& arguments, Options& options,
                                 std::string& problem);

// False for an empty name, a name over 64 bytes, and a name with control characters, quotes, backslashes, or
// a space at its start or end. The agent receives the name, and its JSON reader knows few escapes.
[[nodiscard]] bool valid_user_name(const std::string& name);

}  // namespace vlk::relay
