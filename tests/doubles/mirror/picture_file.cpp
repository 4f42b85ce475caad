// Creates the file and writes pictures to its slots in turn.
#include "tests/doubles/mirror/picture_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace vantelink_doubles {
namespace {

Rectangle bounds_of(const std::vector<Rectangle>& rectangles) {
  Rectangle bounds = rectangles.front();
  for (const Rectangle& one : rectangles) {
    bounds.left = std::min(bounds.left, one.left);
    bounds.top = std::min(bounds.top, one.top);
    bounds.right = std::max(bounds.right, one.right);
    bounds.bottom = std::max(bounds.bottom, one.bottom);
  }
  return bounds;
}

bool contains(const Rectangle& outer, const Rectangle& inner) {
  return outer.left <= inner.left && outer.top <= inner.top && outer.right >= inner.right &&
         outer.bottom >= inner.bottom;
}

}  // namespace

void copy_rectangle(std::uint8_t* to, std::int32_t to_width, const std::uint8_t* from,
                    std::int32_t from_width, const Rectangle& at, std::int32_t from_left,
                    std::int32_t from_top) {
  const std::size_t size = static_cast<std::size_t>(at.right - at.left) * kMirrorPixelSize;
  for (std::int32_t row = at.top; row < at.bottom; ++row) {
    const auto to_pixel =
        std::size_t{static_cast<std::uint32_t>(row)} * static_cast<std::uint32_t>(to_width) +
        static_cast<std::uint32_t>(at.left);
    const auto from_pixel = std::size_t{static_cast<std::uint32_t>(row - at.top + from_top)} *
                                static_cast<std::uint32_t>(from_width) +
                            static_cast<std::uint32_t>(from_left);
    std::memcpy(to + to_pixel * kMirrorPixelSize, from + from_pixel * kMirrorPixelSize, size);
  }
}

PictureFile::PictureFile(const std::string& path, int port) {
  ::unlink(path.c_str());
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, kMirrorFileSize) != 0) throw std::runtime_error("cannot make " + path);
  void* const view = ::mmap(nullptr, kMirrorFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (view == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  memory_ = static_cast<std::uint8_t*>(view);
  mirror_header(memory_).port = port;
  mirror_header(memory_).magic = kMirrorMagic;
}

PictureFile::~PictureFile() {
  ::munmap(memory_, kMirrorFileSize);
}

bool PictureFile::publish(std::int32_t width, std::int32_t height, const std::vector<Rectangle>& changes,
                          const std::function<bool(std::uint8_t*)>& draw) {
  if (changes.empty()) return true;
  const std::int64_t number = begin_picture(memory_);
  std::uint8_t* const pixels = mirror_pixels(memory_, number);
  MirrorSlot& slot = mirror_slot(memory_, number);
  const MirrorSlot& previous = mirror_slot(memory_, number - 1);
  // The slot has the picture before the previous one, so the previous picture's changes are missing in it.
  if (number > 1 && previous.width == width && previous.height == height) {
    for (const Rectangle& one : last_changes_) {
      if (std::any_of(changes.begin(), changes.end(), [&](const auto& now) { return contains(now, one); }))
        continue;
      copy_rectangle(pixels, width, mirror_pixels(memory_, number - 1), width, one, one.left, one.top);
    }
  }
  if (!draw(pixels)) return false;
  const Rectangle bounds = bounds_of(changes);
  slot.width = width;
  slot.height = height;
  slot.left = bounds.left;
  slot.top = bounds.top;
  slot.right = bounds.right;
  slot.bottom = bounds.bottom;
  publish_picture(memory_, number);
  last_changes_ = changes;
  return true;
}

}  // namespace vantelink_doubles
