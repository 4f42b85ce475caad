// The commands backup and restore.
#pragma once

#include <iosfwd>

#include "relay/program/options.h"

namespace vlk::relay {

// Carries out the command and writes what was done to `out`. Throws std::runtime_error with a sentence.
void backup_command(const Options& options, std::ostream& out);
void restore_command(const Options& options, std::ostream& out);

}  // namespace vlk::relay
