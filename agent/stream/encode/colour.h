// Turns a captured 32-bit frame into the NV12 image that an H.264 encoder takes, by the integer formulas of
// BT.601 limited range. Pure arithmetic: no allocation, no platform call, callable from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

// Bytes that the chroma rows of a picture can reach: a row of `width` bytes for every two rows begun, and one
// byte more, as the last pair of an odd width ends behind its row. For even sizes all but that byte is used.
constexpr std::size_t ChromaRoom(std::int32_t width, std::int32_t height) {
  return static_cast<std::size_t>(width) * ((static_cast<std::size_t>(height) + 1) / 2) + 1;
}

// Source: `height` rows (top first) of `stride` bytes; a pixel is blue, green, red and a byte that is
// ignored. Of a row `width` * 4 bytes are read. `luma`: `height` rows of `width` bytes. `chroma`: a row of
// `width` bytes for every even source row, with U and V for every even pixel, taken from that pixel alone;
// ChromaRoom tells what it can reach. The caller owns all buffers, which must not overlap. Writes nothing
// when a size is 0 or less.
void ConvertBgraToNv12(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                       std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma);

// The same as one plain loop a plane: the definition, which the above equals byte for byte at several times
// its speed.
void ConvertBgraToNv12Plainly(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                              std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma);

}  // namespace vlk::agent
