// Makes the spool's folder and its files, and removes what an earlier run has left.
#include "relay/storage/spool/folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include "relay/base/secrets.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

// Begins the name of each file of the spool.
constexpr char kPrefix[] = "spool-";
constexpr std::size_t kNameBytes = 16;

[[noreturn]] void fail(const std::string& step, const fs::path& path, const std::string& reason,
                       const std::string& remedy) {
  throw std::runtime_error("cannot " + step + ' ' + path.string() + ": " + reason + "; " + remedy);
}

// A file keeps its name only if the relay was killed in the moment between the making and the unlinking.
void remove_leftovers(const fs::path& folder) {
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  while (!error && entry != fs::directory_iterator()) {
    const fs::path path = entry->path();
    if (path.filename().string().starts_with(kPrefix) && fs::is_regular_file(fs::symlink_status(path))) {
      fs::remove(path, error);
      if (error) fail("remove", path, error.message(), "remove this file of an earlier run");
    }
    entry.increment(error);
  }
  if (error) fail("read the spool folder", folder, error.message(), "let the relay's user read and write it");
}

}  // namespace

fs::path prepare_spool_folder(fs::path folder) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    fail("make the spool folder", folder, std::strerror(errno),
         "make it for the relay's user, or choose another folder");
  }
  if (!fs::is_directory(folder))
    fail("use the spool folder", folder, "it is not a folder", "choose another folder");
  remove_leftovers(folder);
  const int trial = make_nameless_file(folder);
  if (trial < 0) {
    fail("write in the spool folder", folder, std::strerror(errno),
         "let the relay's user read and write it, or choose another folder");
  }
  ::close(trial);
  return folder;
}

int make_nameless_file(const fs::path& folder) {
  const fs::path file = folder / (kPrefix + random_token(kNameBytes));
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor < 0) return -1;
  // The name may be gone already, because another relay was started on the folder in this moment.
  if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
    const int reason = errno;
    ::close(descriptor);
    errno = reason;
    return -1;
  }
  return descriptor;
}

}  // namespace vlk::relay
