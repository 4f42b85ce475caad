// The memory in which the program desktop_mirror gives the pictures of an X display to the duplication
// double: a file that both map. It begins with a MirrorHeader; the two slots with pixels follow. The code is
// portable, because desktop_mirror is a native program and the double a Windows DLL.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/doubles/boards.h"

namespace vantelink_doubles {

// Name of the environment variable with the file's path, as the Windows program sees it. If the variable is
// set, the double shows the mirrored desktop as its only output.
inline constexpr char kDesktopMirrorVariable[] = "VANTELINK_DESKTOP_MIRROR";

inline constexpr std::int32_t kMirrorMagic = 0x524D4B56;
inline constexpr int kMirrorSlots = 2;
inline constexpr std::size_t kMirrorHeaderSize = 4096;                        // bytes before the first slot
inline constexpr std::size_t kMirrorSlotSize = std::size_t{3840} * 2160 * 4;  // bytes; the largest picture
inline constexpr std::size_t kMirrorFileSize = kMirrorHeaderSize + kMirrorSlots * kMirrorSlotSize;
inline constexpr std::size_t kMirrorPixelSize = 4;  // bytes: blue, green, red and an unused byte

// A value that two processes share, which counts pictures.
using PictureNumber = std::atomic<std::int64_t>;
static_assert(PictureNumber::is_always_lock_free && sizeof(PictureNumber) == 8);

// One picture. The rows have no padding.
struct MirrorSlot {
  Cell width, height;
  // The rectangle that contains all differences from the previous picture. It is the whole picture if that
  // one had another size.
  Cell left, top, right, bottom;
};

// Picture N is in slot N % 2. The writer begins picture N only after it has published picture N - 1, so a
// picture is complete as long as at most the next one has been begun.
struct MirrorHeader {
  Cell magic;               // kMirrorMagic as soon as the other members are valid
  Cell port;                // of 127.0.0.1, on which desktop_mirror sends a byte at each picture
  PictureNumber begun;      // number of the picture that is being written or was written last
  PictureNumber published;  // number of the last complete picture; 0 before the first
  MirrorSlot slots[kMirrorSlots];
};
static_assert(sizeof(MirrorHeader) <= kMirrorHeaderSize);

// The header at the beginning of the mapped file, and the pixels of the picture with this number.
inline MirrorHeader& mirror_header(std::uint8_t* file) {
  return *reinterpret_cast<MirrorHeader*>(file);
}
inline std::uint8_t* mirror_pixels(std::uint8_t* file, std::int64_t number) {
  return file + kMirrorHeaderSize + static_cast<std::size_t>(number % kMirrorSlots) * kMirrorSlotSize;
}
inline MirrorSlot& mirror_slot(std::uint8_t* file, std::int64_t number) {
  return mirror_header(file).slots[number % kMirrorSlots];
}

// Announces that the next picture is being written, and returns its number. Only one thread may write.
inline std::int64_t begin_picture(std::uint8_t* file) {
  MirrorHeader& header = mirror_header(file);
  const std::int64_t number = header.published + 1;
  header.begun.store(number, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);  // precedes each write to the slot
  return number;
}

inline void publish_picture(std::uint8_t* file, std::int64_t number) {
  mirror_header(file).published.store(number, std::memory_order_release);
}

// Whether picture `number`, which was published, is still in its slot. What was read from the slot before
// this call is valid if the result is true.
inline bool picture_intact(std::uint8_t* file, std::int64_t number) {
  std::atomic_thread_fence(std::memory_order_acquire);
  return mirror_header(file).begun.load(std::memory_order_relaxed) <= number + 1;
}

// Rows of pixels outside the file, and the number of the picture that they show; 0 if they show none.
struct PictureCopy {
  std::uint8_t* pixels = nullptr;
  std::size_t pitch = 0;  // bytes from row to row
  std::int32_t width = 0, height = 0;
  std::int64_t number = 0;
};

// Makes `copy` show the last published picture, and copies only what changed if it shows the picture before.
// Returns false if there is no picture, or if its size is not that of `copy`.
inline bool update_copy(std::uint8_t* file, PictureCopy& copy) {
  for (;;) {
    const std::int64_t number = mirror_header(file).published.load(std::memory_order_acquire);
    if (number == 0) return false;
    if (number == copy.number) return true;
    const MirrorSlot& slot = mirror_slot(file, number);
    std::int32_t left = 0, top = 0, right = slot.width, bottom = slot.height;
    const bool fits = right == copy.width && bottom == copy.height;
    if (fits && number == copy.number + 1) {
      left = slot.left, top = slot.top, right = slot.right, bottom = slot.bottom;
    }
    // The cells may belong to a later picture, and then need not be those of one rectangle.
    if (!picture_intact(file, number)) continue;
    if (!fits) return false;
    copy.number = 0;  // until the copy is known to be complete
    const std::size_t row_size = static_cast<std::size_t>(copy.width) * kMirrorPixelSize,
                      skipped = static_cast<std::size_t>(left) * kMirrorPixelSize,
                      size = static_cast<std::size_t>(right - left) * kMirrorPixelSize;
    const std::uint8_t* const pixels = mirror_pixels(file, number);
    for (auto row = static_cast<std::size_t>(top); row < static_cast<std::size_t>(bottom); ++row)
      std::memcpy(copy.pixels + row * copy.pitch + skipped, pixels + row * row_size + skipped, size);
    if (!picture_intact(file, number)) continue;
    copy.number = number;
    return true;
  }
}

}  // namespace vantelink_doubles
