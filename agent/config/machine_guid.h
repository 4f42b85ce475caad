// The machine's identity, which goes out with an enrolment.
#pragma once

#include <string>

namespace vlk::agent {

// The system's own identifier as stored, in UTF-8; empty if it cannot be read.
std::string read_machine_guid();

}  // namespace vlk::agent
