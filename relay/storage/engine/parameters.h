// Parameters in the statements of the relay.
#pragma once

#include <string>

namespace vlk::relay {

// Writes the parameters as PostgreSQL does: $1, $2. No statement of the relay has a question mark elsewhere.
inline std::string with_numbers(const char* sql) {
  std::string result;
  int number = 0;
  for (const char* c = sql; *c != '\0'; ++c) {
    if (*c == '?') {
      result += '$' + std::to_string(++number);
    } else {
      result += *c;
    }
  }
  return result;
}

}  // namespace vlk::relay
