// Folders and files of a host without drive letters. Drive C is the host's root folder. Backslashes separate
// the parts of a path, as on Windows.
#include "platform/files/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/text.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kDriveC = 1u << 2;
constexpr std::int64_t kEpochSeconds = 11644473600;  // from 1601 to 1970
constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kNanosecondsPerTick = 100;

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};
using UniqueFolder = std::unique_ptr<DIR, FolderCloser>;

std::string host_path(const std::wstring& path) {
  std::string text = WideToUtf8(path.c_str());
  if (text.starts_with("C:") || text.starts_with("c:")) text.erase(0, 2);
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

}  // namespace

std::uint32_t LogicalDrives() {
  return kDriveC;
}

void VisitFolder(const std::wstring& pattern, const std::function<void(const FolderEntry&)>& visit) {
  std::string path = host_path(pattern);
  if (path.ends_with('*')) path.pop_back();
  const UniqueFolder folder(opendir(path.empty() ? "." : path.c_str()));
  if (!folder) return;
  while (const dirent* const found = readdir(folder.get())) {
    struct stat status = {};
    if (fstatat(dirfd(folder.get()), found->d_name, &status, 0) != 0 &&
        fstatat(dirfd(folder.get()), found->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      continue;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const std::int64_t ticks = (status.st_mtim.tv_sec + kEpochSeconds) * kTicksPerSecond +
                               status.st_mtim.tv_nsec / kNanosecondsPerTick;
    const std::wstring name = Utf8ToWide(found->d_name);
    visit({name, S_ISDIR(status.st_mode) ? kDirectoryAttribute : 0, static_cast<std::uint32_t>(size >> 32),
           static_cast<std::uint32_t>(size), static_cast<std::uint64_t>(ticks)});
  }
}

void CreateFolder(const std::wstring& path) {
  mkdir(host_path(path).c_str(), 0777);
}

UniqueStream OpenFile(const std::wstring& path, const wchar_t* mode) {
  return UniqueStream(std::fopen(host_path(path).c_str(), WideToUtf8(mode).c_str()));
}

}  // namespace vlk::agent
