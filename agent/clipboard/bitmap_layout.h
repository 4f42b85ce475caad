// Finds a bitmap's pixels in its block of memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

// The fields of a BITMAPINFOHEADER that determine where the pixels begin.
struct BitmapLayout {
  std::uint32_t header_size = 0;   // biSize, bytes
  std::uint16_t bit_count = 0;     // biBitCount
  std::uint32_t compression = 0;   // biCompression
  std::uint32_t colours_used = 0;  // biClrUsed
};

// The distance in bytes from the start of the header to the pixels.
[[nodiscard]] std::size_t BitmapPixelOffset(const BitmapLayout& layout);

}  // namespace vlk::agent
