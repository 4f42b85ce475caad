// A parameter of PostgreSQL with many texts.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

// The ids as an array of the type text[]. An id is made by a relay, so it has no quotation mark and no
// backslash.
[[nodiscard]] inline std::string text_array(const std::vector<std::string>& ids) {
  std::string text = "{";
  for (const std::string& id : ids)
    text += (text.size() > 1 ? ",\"" : "\"") + id + '"';
  return text + '}';
}

}  // namespace vlk::relay
