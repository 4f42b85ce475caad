// The path of the executable under test.
#pragma once

#include <string>

namespace vlk::test {

// The agent's executable, in the folder above the test program's.
std::wstring agent_file();

}  // namespace vlk::test
