// The pictures that the desktop double shows: slanted gradients that move from frame to frame and differ
// between outputs, and along the top edge squares that encode the frame's number. A test can therefore
// identify each frame and recompute its pixels. The code is portable, because the double paints inside the
// agent's process and the test is a native program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vantelink_doubles {

inline constexpr std::uint32_t kNumberBits = 16;
inline constexpr std::uint32_t kSquare = 16;  // pixels per side; bit 0 is on the left, white is 1

// A triangle wave between `low` and `high` with a period of `period` steps.
inline std::uint8_t triangle(std::uint32_t step, std::uint32_t period, std::uint32_t low,
                             std::uint32_t high) {
  const std::uint32_t place = step % period;
  const std::uint32_t height = place < period / 2 ? place : period - place;
  return static_cast<std::uint8_t>(low + (high - low) * 2 * height / period);
}

// Paints `rows` rows of `pitch` bytes and writes width * 4 bytes of each: blue, green, red and an unused byte
// per pixel.
inline void paint_picture(std::uint8_t* pixels, std::uint32_t width, std::uint32_t rows, std::size_t pitch,
                          std::uint32_t number, std::uint32_t output) {
  constexpr std::uint32_t kPeriod = 2048;  // steps after which all channels repeat
  // Each row of the picture is a section of this longer row. The section moves to the right from row to row.
  std::vector<std::uint8_t> line((width + kPeriod) * std::size_t{4});
  for (std::uint32_t x = 0; x < width + kPeriod; ++x) {
    std::uint8_t* const pixel = line.data() + std::size_t{x} * 4;
    pixel[output % 3] = triangle(x, 512, 20, 235);
    pixel[(output + 1) % 3] = triangle(x + 100, 1024, 0, 255);
    pixel[(output + 2) % 3] = triangle(x, 2048, 60, 200);
    pixel[3] = static_cast<std::uint8_t>(x * 89);
  }
  for (std::uint32_t y = 0; y < rows; ++y) {
    const std::uint32_t shift = (y / 2 + number * 4) % kPeriod;
    std::memcpy(pixels + y * pitch, line.data() + std::size_t{shift} * 4, std::size_t{width} * 4);
  }
  for (std::uint32_t y = 0; y < kSquare && y < rows; ++y) {
    for (std::uint32_t x = 0; x < kSquare * kNumberBits && x < width; ++x) {
      std::memset(pixels + y * pitch + std::size_t{x} * 4, (number >> (x / kSquare) & 1) != 0 ? 255 : 0, 4);
    }
  }
}

// Returns the frame's number, read from one byte per pixel: luma or any colour channel. Compression errors do
// not change the result.
inline std::uint32_t read_number(const std::uint8_t* plane, std::size_t pitch) {
  std::uint32_t number = 0;
  for (std::uint32_t bit = 0; bit < kNumberBits; ++bit) {
    const std::uint8_t middle = plane[kSquare / 2 * pitch + bit * kSquare + kSquare / 2];
    if (middle > 127) number |= 1u << bit;
  }
  return number;
}

}  // namespace vantelink_doubles
