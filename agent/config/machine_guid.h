// The machine's identifier, which is sent with an enrolment.
#pragma once

#include <string>

namespace vlk::agent {

// The identifier that the system stores, in UTF-8; empty if it cannot be read.
[[nodiscard]] std::string read_machine_guid();

}  // namespace vlk::agent
