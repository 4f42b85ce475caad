// Folder listings as JSON text.
#include "transfer/directory.h"

#include "platform/files/file_system.h"
#include "platform/text.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kDriveLetters = 26;
constexpr std::uint64_t kEpochTicks = 0x19DB1DED53E8000;  // 1970-01-01, in ticks since 1601-01-01
constexpr std::uint64_t kTicksPerSecond = 10'000'000;

struct Entry {
  std::string_view name;
  std::string_view path;
  bool dir = false;
  std::uint64_t size = 0;   // bytes
  std::uint64_t mtime = 0;  // seconds since 1970
};

void add_entry(std::string& entries, const Entry& entry) {
  if (entries.size() > 1) entries += ',';
  entries += JsonWriter()
                 .add_string("name", entry.name)
                 .add_string("path", entry.path)
                 .add_bool("dir", entry.dir)
                 .add_int("size", static_cast<std::int64_t>(entry.size))
                 .add_int("mtime", static_cast<std::int64_t>(entry.mtime))
                 .finish();
}

std::string folder_entries(std::string_view path) {
  std::wstring prefix = Utf8ToWide(path);
  // Only a backslash counts as a separator: a path that ends in a slash gets a backslash appended.
  if (!prefix.empty() && prefix.back() != L'\\') prefix += L'\\';
  const std::string utf8_prefix = WideToUtf8(prefix);

  // The entries are not sorted or filtered, except for "." and "..": the representative's file browser does
  // both.
  std::string entries = "[";
  std::string entry_path;
  VisitFolder(prefix + L'*', [&](const FolderEntry& found) {
    if (found.name == L"." || found.name == L"..") return;
    const bool dir = (found.attributes & kDirectoryAttribute) != 0;
    const std::uint64_t size = std::uint64_t{found.size_high} << 32 | found.size_low;
    const std::string name = WideToUtf8(found.name);
    entry_path.assign(utf8_prefix).append(name);
    add_entry(entries, {name, entry_path, dir, dir ? 0 : size, UnixSeconds(found.last_write)});
  });
  return entries + ']';
}

}  // namespace

std::string ListDirectory(std::string_view path) {
  const std::string entries = path.empty() ? DriveEntries(LogicalDrives()) : folder_entries(path);
  return JsonWriter()
      .add_string("path", path)
      .add_string("parent", ParentPath(path))
      .add_raw("entries", entries)
      .finish();
}

std::string DriveEntries(std::uint32_t drives) {
  std::string entries = "[";
  for (std::uint32_t i = 0; i < kDriveLetters; ++i) {
    if ((drives >> i & 1) == 0) continue;
    const std::string name = {static_cast<char>('A' + i), ':'};
    add_entry(entries, {name, name + '\\', true, 0, 0});
  }
  return entries + ']';
}

std::string ParentPath(std::string_view path) {
  if (path.ends_with('\\')) path.remove_suffix(1);
  const std::size_t last = path.rfind('\\');
  // A last backslash at index 0 or 1 is that of "\folder" or of "\\server", which have no parent folder.
  if (last == std::string_view::npos || last <= 1) return {};
  return std::string(path.substr(0, last));
}

std::uint64_t UnixSeconds(std::uint64_t ticks) {
  return (ticks - kEpochTicks) / kTicksPerSecond;
}

}  // namespace vlk::agent
