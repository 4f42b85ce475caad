// Converts a captured 32-bit frame to the NV12 image that an H.264 encoder needs, with the integer formulas
// of BT.601 limited range. Makes no allocations and no platform calls; callable on any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

// Bytes of memory that the chroma rows of a picture need: `width` bytes for every two rows of the picture,
// rounded up, and one additional byte. With an odd width, the last pair of U and V ends one byte after its
// row; with an even width, the additional byte is not used.
[[nodiscard]] constexpr std::size_t ChromaCapacity(std::int32_t width, std::int32_t height) {
  return static_cast<std::size_t>(width) * ((static_cast<std::size_t>(height) + 1) / 2) + 1;
}

// `source`: `height` top-down rows of `stride` bytes, of which `width` * 4 are read; a pixel is blue, green,
// red and an unused byte. `luma`: `height` rows of `width` bytes. `chroma`: ChromaCapacity bytes, a row of
// `width` bytes for every even source row, with U and V of every pixel in an even column, each computed from
// that pixel alone. The buffers must not overlap. Writes nothing if a size is 0 or less.
void ConvertBgraToNv12(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                       std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma);

// The same conversion as one simple loop for each plane. It defines the result: ConvertBgraToNv12 gives the
// same bytes at several times the speed.
void ConvertBgraToNv12Plainly(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                              std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma);

}  // namespace vlk::agent
