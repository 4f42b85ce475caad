// The command "authority": makes the next authority of the relay, and takes it into use.
#pragma once

#include <iosfwd>

#include "relay/program/options.h"

namespace vlk::relay {

// Carries out the step that the options name, and says what it did and what is to be done next. A relay may
// use the data folder meanwhile. Throws std::runtime_error with a sentence for the operator.
void authority_command(const Options& options, std::ostream& out);

}  // namespace vlk::relay
