// Checks owners and permission bits, and replaces files in one step.
#include "relay/net/private_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace vlk::relay {
namespace {

// Closes a file descriptor, unless it is invalid.
struct Descriptor {
  explicit Descriptor(int opened) : number(opened) {}
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  const int number;
};

[[noreturn]] void fail(const std::string& step) {
  throw std::runtime_error(step + ": " + std::strerror(errno));
}

void write_all(int descriptor, std::string_view content, const std::string& file) {
  while (!content.empty()) {
    const auto written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("cannot write " + file);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

// A rename is on the disk only when the folder is.
void sync_folder_of(const std::string& file) {
  const auto parent = std::filesystem::path(file).parent_path();
  const std::string folder = parent.empty() ? "." : parent.string();
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.number < 0 || ::fsync(opened.number) != 0) fail("cannot write the folder " + folder);
}

}  // namespace

void require_private(const std::string& path, std::string_view what) {
  struct stat status {};
  const std::string name = std::string(what) + ' ' + path;
  if (::stat(path.c_str(), &status) != 0) fail("cannot read " + name);
  const bool folder = S_ISDIR(status.st_mode);
  if (status.st_uid != ::geteuid() && ::geteuid() != 0) {
    throw std::runtime_error(name + " belongs to another user (id " + std::to_string(status.st_uid) +
                             "); start the relay as that user, or run: chown " + (folder ? "-R " : "") +
                             std::to_string(::geteuid()) + ' ' + path);
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
  throw std::runtime_error(name + " is open to other users (mode " + mode + "); run: chmod " +
                           (folder ? "700 " : "600 ") + path);
}

void write_durably(const std::string& file, std::string_view content, unsigned mode) {
  const std::string draft = file + ".new";
  // A draft that an interrupted start left may have other permission bits.
  if (::unlink(draft.c_str()) != 0 && errno != ENOENT) fail("cannot replace " + draft);
  {
    const Descriptor opened(
        ::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (opened.number < 0) fail("cannot write " + file);
    write_all(opened.number, content, file);
    if (::fsync(opened.number) != 0) fail("cannot write " + file);
  }
  rename_durably(draft, file);
}

void rename_durably(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) fail("cannot write " + to);
  sync_folder_of(to);
}

}  // namespace vlk::relay
