// The kinds of rows as docs/trail.md lists them.
#pragma once

#include <map>
#include <string>

namespace vlk::relay {

// By code: the rest of the kind's line.
[[nodiscard]] std::map<std::string, std::string> documented_kinds();

}  // namespace vlk::relay
