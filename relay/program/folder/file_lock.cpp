// Takes locks with flock(2), which belong to the opened file: another descriptor of the file that is closed,
// as SQLite does, does not release them.
#include "relay/program/folder/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vlk::relay {

std::optional<FileLock> FileLock::lock(int descriptor, const std::string& path, Mode mode) {
  if (descriptor < 0) throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
  FileLock lock(descriptor);
  if (::flock(descriptor, (mode == Mode::Shared ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0) return lock;
  if (errno == EWOULDBLOCK) return std::nullopt;
  throw std::runtime_error("cannot lock " + path + ": " + std::strerror(errno));
}

std::optional<FileLock> FileLock::take(const std::string& path, Mode mode) {
  return lock(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK), path, mode);
}

std::optional<FileLock> FileLock::take_or_make(const std::string& file, Mode mode) {
  return lock(::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600), file, mode);
}

FileLock::FileLock(FileLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

FileLock::~FileLock() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

}  // namespace vlk::relay
