// Reads the keys that the agent knows from any bytes, and writes any bytes as a JSON value, which must be
// read back unchanged.
#include <string_view>

#include "require.h"
#include "wire/json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const std::string_view key :
       {"code", "message", "agent_id", "monitor_id", "path", "transfer_id", ""}) {
    const std::size_t position = vlk::find_value(text, key);
    REQUIRE(position == std::string_view::npos || position <= size);
    const auto string = vlk::read_string(text, key);
    const auto number = vlk::read_int(text, key);
    REQUIRE(!(string.found && number.found));
    REQUIRE(string.value.size() <= size);
    if (position == std::string_view::npos) REQUIRE(!string.found && !number.found);
  }

  const std::string written = vlk::JsonWriter().add_string("path", text).add_int("transfer_id", 7).finish();
  const auto read_back = vlk::read_string(written, "path");
  REQUIRE(read_back.found && read_back.value == text);
  return 0;
}
