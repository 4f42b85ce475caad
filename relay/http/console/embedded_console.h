// The console's files in the executable.
#pragma once

#include <span>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/http/console/console_files.h"

namespace vlk::relay {

// The files that tools/pack-console put into the executable when it was built.
[[nodiscard]] std::vector<ConsoleFile> embedded_console();

// The files in a pack: their number, then path and content of each after their sizes in bytes. All numbers
// are u32, big-endian. Throws std::runtime_error if the pack is not complete.
[[nodiscard]] std::vector<ConsoleFile> unpacked_console(std::span<const std::uint8_t> pack);

}  // namespace vlk::relay
