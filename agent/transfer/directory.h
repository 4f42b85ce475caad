// Folder listings for the representative's file browser: one folder as one JSON text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlk::agent {

// Lists the folder's entries, or the drives if `path` is empty. The text also contains the unchanged path and
// the path of the parent folder. A folder that cannot be read has no entries. Blocks for as long as the disk
// takes.
std::string ListDirectory(std::string_view path);

// The functions below are the parts of a listing that do not use the disk.

// The JSON array of the drives whose bits are set in `drives`: bit 0 is A, bit 25 is Z.
[[nodiscard]] std::string DriveEntries(std::uint32_t drives);
// The path of the parent folder; empty if the parent is the list of drives.
[[nodiscard]] std::string ParentPath(std::string_view path);
// Converts units of 100 nanoseconds since 1601 to whole seconds since 1970. A time before 1970 wraps around.
[[nodiscard]] std::uint64_t UnixSeconds(std::uint64_t ticks);

}  // namespace vlk::agent
