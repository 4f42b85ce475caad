// The command verify-trail, which checks a trail without the relay.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace vlk::relay {

// The exit codes: the trail is intact; a row was touched; the arguments or the files are wrong.
inline constexpr int kTrailIntact = 0;
inline constexpr int kTrailTouched = 1;
inline constexpr int kTrailUnreadable = 2;

// Runs the command with the arguments after its name and writes the result to `out`, problems of the call to
// `err`. Returns the exit code.
int verify_trail_command(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace vlk::relay
