// The clipboard formats that are shared, and where a bitmap's pixels lie.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "clipboard/payload.h"

namespace vlk::agent {

// Windows' numbers of the standard formats.
inline constexpr std::uint32_t kFormatBitmap = 8;  // CF_DIB: header, colours and pixels in one block
inline constexpr std::uint32_t kFormatText = 13;   // CF_UNICODETEXT
inline constexpr std::uint32_t kFormatFiles = 15;  // CF_HDROP

// What to send of a clipboard that holds several formats: files before text before an image. The choice
// stands even if it then yields nothing. Nothing when none of the three is there.
std::optional<ClipboardKind> ChooseClipboardKind(const std::function<bool(std::uint32_t format)>& available);

// The fields of a BITMAPINFOHEADER that tell where the pixels begin.
struct BitmapLayout {
  std::uint32_t header_size = 0;   // biSize, bytes
  std::uint16_t bit_count = 0;     // biBitCount
  std::uint32_t compression = 0;   // biCompression
  std::uint32_t colours_used = 0;  // biClrUsed
};

// Bytes from the start of the header to the pixels.
std::size_t BitmapPixelOffset(const BitmapLayout& layout);

}  // namespace vlk::agent
