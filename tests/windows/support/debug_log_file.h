// The agent's debug log file, as a test reads and removes it.
#pragma once

#include <string>

namespace vlk::test {

std::string debug_log_path();
void remove_debug_log();
// The log's text, with each line end read as "\n"; empty if there is no log.
std::string debug_log();

}  // namespace vlk::test
