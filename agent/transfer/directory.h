// Folder listings for the representative's file browser: one folder at a time, as one JSON text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlk::agent {

// The folder's entries, or the drives when `path` is empty, with the path itself as it came and that of the
// folder above. A folder that cannot be read looks empty. Blocks for as long as the disk takes.
std::string ListDirectory(std::string_view path);

// The parts of a listing, which need no disk.

// The JSON array of drives: bit 0 is A, bit 25 is Z.
std::string DriveEntries(std::uint32_t drives);
// The path of the folder above, or empty where the list of drives stands above.
std::string ParentPath(std::string_view path);
// Whole seconds since 1970 from units of 100 nanoseconds since 1601. A time before 1970 wraps.
std::uint64_t UnixSeconds(std::uint64_t ticks);

}  // namespace vlk::agent
