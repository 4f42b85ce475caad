// The command verify-trail, which checks a trail without the relay.
#pragma once

#include <iosfwd>
#include <string>

namespace vlk::relay {

// The exit codes: the trail is intact; a row was touched; the arguments or the files are wrong.
inline constexpr int kTrailIntact = 0;
inline constexpr int kTrailTouched = 1;
inline constexpr int kTrailUnreadable = 2;

// What is to be checked: exactly one of `file` and `data`.
struct TrailCall {
  std::string file{};  // an export, or a file of --trail-log
  std::string data{};  // a data folder
  std::string key{};   // a copy of the public key; empty for the one that lies beside the rows
};

// Runs the command and writes the result to `out`, problems of the call to `err`. Returns the exit code.
int verify_trail_command(const TrailCall& call, std::ostream& out, std::ostream& err);

}  // namespace vlk::relay
