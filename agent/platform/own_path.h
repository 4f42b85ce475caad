// Where this executable lies.
#pragma once

#include <string>

namespace vlk {

// This executable's full path between double quote characters, as command lines need it. A path of 260
// characters or more is cut off.
std::wstring quoted_own_path();

}  // namespace vlk
