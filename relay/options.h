// The command line of the relay.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

enum class Action { Serve, Help, SetPassword, AddUser, RemoveUser };

struct Options {
  Action action = Action::Serve;
  std::string user;                 // for the three actions on users
  std::string address = "0.0.0.0";  // to listen on
  unsigned short port = 8443;       // 0 picks a free one
  std::string data = "vantelink-data";
  unsigned short consent_s = 120;  // seconds that a local user has to answer a request
  std::string console;             // folder of the console's files
  std::string updates;             // folder of the agents' updates; "updates" in `data` when none is given
  std::vector<std::string> hosts;  // names for the self-made certificate; "localhost" when none is given
  std::string certificate;         // PEM files; both or neither
  std::string key;
};

// What --help prints.
std::string help_text();

// Reads the arguments behind the program's name. False with one sentence in `problem` when they make no
// sense.
bool parse_options(const std::vector<std::string>& arguments, Options& options, std::string& problem);

// False for names that a representative must not have: empty, over 64 bytes, or with control characters,
// quotes, backslashes or outer blanks. The name travels to the agent, whose JSON reader knows few escapes.
bool valid_user_name(const std::string& name);

}  // namespace vlk::relay
