// The command check, which says what is wrong with a set-up.
#pragma once

#include <iosfwd>

#include "relay/program/options.h"

namespace vlk::relay {

// Checks the set-up that the options for serving describe, and writes one line for each finding. Returns the
// exit code: 0 if nothing is wrong, otherwise 1.
int check_command(const Options& options, std::ostream& out);

}  // namespace vlk::relay
