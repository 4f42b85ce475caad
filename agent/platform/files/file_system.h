// The little that browsing and transfers ask of the system's files. Paths are wide, with backslashes between
// their parts, and end at the first character of value 0. Nothing here is locked; every call may come from
// any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/files/unique_stream.h"

namespace vlk::agent {

inline constexpr std::uint32_t kDirectoryAttribute = 0x10;

struct FolderEntry {
  std::wstring_view name;  // valid during the visit alone
  std::uint32_t attributes = 0;
  std::uint32_t size_high = 0;   // upper half of the size in bytes
  std::uint32_t size_low = 0;    // lower half
  std::uint64_t last_write = 0;  // units of 100 nanoseconds since 1601-01-01 UTC
};

// The drives that exist: bit 0 is A, bit 25 is Z. A host without drive letters has one drive, C, for its
// root.
std::uint32_t LogicalDrives();

// Visits what matches `pattern`, a folder's path with "\*" behind it, in the system's own order, "." and ".."
// included. A folder that cannot be opened has no entries.
void VisitFolder(const std::wstring& pattern, const std::function<void(const FolderEntry&)>& visit);

// Makes one folder. Its failure is of no interest to anybody here: most often it exists.
void CreateFolder(const std::wstring& path);

// Buffered and binary: "rb" reads a file, "wb" makes or empties one. Null when that fails.
UniqueStream OpenFile(const std::wstring& path, const wchar_t* mode);

}  // namespace vlk::agent
