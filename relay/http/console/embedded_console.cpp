// Contains the console's files, and reads them.
#include "relay/http/console/embedded_console.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

// The pack between two symbols in the section of constants.
asm(R"(
  .pushsection .rodata
  .balign 16
vantelink_console_begin:
  .incbin ")" VANTELINK_CONSOLE_PACK R"("
vantelink_console_end:
  .popsection
)");

extern "C" {
extern const std::uint8_t vantelink_console_begin[];
extern const std::uint8_t vantelink_console_end[];
}

namespace vlk::relay {
namespace {

template <class Value>
Value whole(std::optional<Value> value) {
  if (!value) throw std::runtime_error("the console in this program is damaged; install the program again");
  return *value;
}

std::string next_text(ByteReader& reader) {
  return std::string(whole(reader.take(whole(reader.u32()))));
}

}  // namespace

std::vector<ConsoleFile> unpacked_console(std::span<const std::uint8_t> pack) {
  ByteReader reader(pack);
  std::vector<ConsoleFile> files;
  for (std::uint32_t left = whole(reader.u32()); left > 0; --left) {
    std::string path = next_text(reader);
    files.push_back({std::move(path), next_text(reader)});
  }
  return files;
}

std::vector<ConsoleFile> embedded_console() {
  return unpacked_console({vantelink_console_begin, vantelink_console_end});
}

}  // namespace vlk::relay
