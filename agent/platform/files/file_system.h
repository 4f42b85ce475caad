// Folders and files, as far as the file browser and transfers need them. Paths are wide strings with
// backslashes between their parts, and end at the first character with the value 0. Callable on any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/files/unique_stream.h"

namespace vlk::agent {

inline constexpr std::uint32_t kDirectoryAttribute = 0x10;

struct FolderEntry {
  std::wstring_view name;  // valid only during the visit
  std::uint32_t attributes = 0;
  std::uint32_t size_high = 0;   // upper half of the size in bytes
  std::uint32_t size_low = 0;    // lower half of the size
  std::uint64_t last_write = 0;  // units of 100 nanoseconds since 1601-01-01 UTC
};

// The drives that exist: bit 0 is A, bit 25 is Z. A host without drive letters has one drive, C, which is its
// root folder.
[[nodiscard]] std::uint32_t LogicalDrives();

// Calls `visit` for each entry of a folder, in the system's order, including "." and "..". `pattern` is the
// folder's path followed by "\*". A folder that cannot be opened has no entries.
void VisitFolder(const std::wstring& pattern, const std::function<void(const FolderEntry&)>& visit);

// Creates one folder. A failure is ignored: its usual reason is that the folder exists.
void CreateFolder(const std::wstring& path);

// Opens a file, buffered and binary: "rb" reads it, "wb" creates or empties it. Null if that fails.
[[nodiscard]] UniqueStream OpenFile(const std::wstring& path, const wchar_t* mode);

}  // namespace vlk::agent
