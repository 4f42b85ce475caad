// The path of this executable.
#pragma once

#include <string>

namespace vlk {

// This executable's full path between double quote characters, for use in a command line. A path of 260
// characters or more is truncated.
[[nodiscard]] std::wstring quoted_own_path();

}  // namespace vlk
