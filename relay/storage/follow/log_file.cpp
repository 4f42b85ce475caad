// Writes the rows of the trail to a file that rotates.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "relay/storage/follow/sinks.h"
#include "relay/storage/trail/text/lines.h"

namespace vlk::relay {
namespace {

// The end of the file that is searched for its last line.
constexpr off_t kTail = 256 * 1024;

[[noreturn]] void fail(const std::string& what, const std::string& file) {
  throw std::runtime_error(what + ' ' + file + ": " + std::strerror(errno));
}

std::string read_tail(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return {};
  const off_t size = ::lseek(descriptor, 0, SEEK_END);
  std::string text(static_cast<std::size_t>(size < kTail ? size : kTail), '\0');
  const ssize_t got = ::pread(descriptor, text.data(), text.size(), size - static_cast<off_t>(text.size()));
  ::close(descriptor);
  text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return text;
}

// The row in the last whole line.
std::optional<TrailEnd> last_row_in(const std::string& text) {
  const std::size_t end = text.rfind('\n');
  if (end == std::string::npos) return std::nullopt;
  const std::size_t before = end == 0 ? std::string::npos : text.rfind('\n', end - 1);
  const std::size_t begin = before == std::string::npos ? 0 : before + 1;
  const auto row = read_row_line(std::string_view(text).substr(begin, end - begin));
  return row ? std::optional(TrailEnd{.id = row->row.id, .hash = row->row.hash}) : std::nullopt;
}

}  // namespace

TrailLogFile::~TrailLogFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<TrailEnd> TrailLogFile::last_row() {
  for (const std::string& file : {file_, file_ + ".1"}) {
    if (auto row = last_row_in(read_tail(file))) return row;
  }
  return TrailEnd{};
}

void TrailLogFile::open() {
  descriptor_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (descriptor_ < 0) fail("cannot write the trail to", file_);
  struct stat status {};
  size_ = ::fstat(descriptor_, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  // A crash may have left the beginning of a line.
  char last = '\n';
  if (size_ > 0 && ::pread(descriptor_, &last, 1, static_cast<off_t>(size_ - 1)) == 1 && last != '\n') {
    const std::string text = read_tail(file_);
    const std::size_t whole = text.rfind('\n');
    const std::size_t partial = whole == std::string::npos ? text.size() : text.size() - whole - 1;
    size_ -= partial;
    if (::ftruncate(descriptor_, static_cast<off_t>(size_)) != 0) fail("cannot write the trail to", file_);
  }
}

void TrailLogFile::write(const TrailRow& row) {
  if (descriptor_ >= 0 && size_ >= rotation_.bytes) rotate();
  if (descriptor_ < 0) open();
  const std::string line = row_line(row) + '\n';
  const ssize_t written = ::write(descriptor_, line.data(), line.size());
  if (written == static_cast<ssize_t>(line.size())) {
    size_ += line.size();
    return;
  }
  // Removes the part of the line that was written, for instance before the disk was full.
  if (written > 0 && ::ftruncate(descriptor_, static_cast<off_t>(size_)) != 0) reopen();
  fail("cannot write the trail to", file_);
}

void TrailLogFile::reopen() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

void TrailLogFile::rotate() {
  reopen();
  for (unsigned number = rotation_.keep; number > 1; --number)
    std::rename((file_ + '.' + std::to_string(number - 1)).c_str(),
                (file_ + '.' + std::to_string(number)).c_str());
  if (std::rename(file_.c_str(), (file_ + ".1").c_str()) != 0) fail("cannot rotate", file_);
}

}  // namespace vlk::relay
