// Finds the pixels of a bitmap.
#include "clipboard/bitmap_layout.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kBitFields = 3;        // BI_BITFIELDS: three masks in place of the colour table
constexpr std::uint16_t kMostPaletteBits = 8;  // bitmaps with more bits have no colour table
constexpr std::size_t kColourSize = 4;         // bytes of one colour or mask

std::size_t colours(const BitmapLayout& layout) {
  if (layout.compression == kBitFields) return 3;
  if (layout.bit_count > kMostPaletteBits) return 0;
  return layout.colours_used != 0 ? layout.colours_used : std::size_t{1} << layout.bit_count;
}

}  // namespace

std::size_t BitmapPixelOffset(const BitmapLayout& layout) {
  return layout.header_size + colours(layout) * kColourSize;
}

}  // namespace vlk::agent
