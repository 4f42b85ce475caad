// Computes characters, lines and the film.
#include "screen/content.h"

#include <algorithm>
#include <cstddef>
#include <random>

#include "tests/doubles/scripted_picture.h"

namespace vantelink_bench {
namespace {

constexpr std::uint32_t kPaper = 0xFFFFFF, kInk = 0x202020;
constexpr std::uint32_t kAlphabet = 64;

// Spreads the number's bits, so that neighbours differ in many of them.
std::uint32_t mixed(std::uint32_t number) {
  number = (number ^ (number >> 16)) * 0x45D9F3BU;
  number = (number ^ (number >> 16)) * 0x45D9F3BU;
  return number ^ (number >> 16);
}

void draw(Pixels& pixels, int width, int left, int top, std::uint32_t number) {
  if (mixed(number) % 6 == 0) return;
  // A glyph of 3 by 5 squares, each 2 pixels wide and high.
  const std::uint32_t glyph = mixed(mixed(number) % kAlphabet + 1) | 1;
  for (int y = 0; y < 10; ++y) {
    for (int x = 0; x < 6; ++x) {
      if ((glyph >> (y / 2 * 3 + x / 2) & 1) != 0)
        pixels[static_cast<std::size_t>(top + y) * static_cast<std::size_t>(width) +
               static_cast<std::size_t>(left + x)] = kInk;
    }
  }
}

}  // namespace

Pixels character(std::uint32_t number) {
  Pixels pixels(std::size_t{kCellWidth} * kCellHeight, kPaper);
  draw(pixels, kCellWidth, 1, 3, number);
  return pixels;
}

Pixels text_line(std::uint32_t number, int width) {
  Pixels pixels(static_cast<std::size_t>(width) * kLineHeight, kPaper);
  const int length = width / kCellWidth - static_cast<int>(mixed(number) % 64);
  for (int column = 0; column < length; ++column)
    draw(pixels, width, column * kCellWidth + 1, 7, number * 1000 + static_cast<std::uint32_t>(column));
  return pixels;
}

Pixels film() {
  Pixels pixels;
  pixels.reserve(std::size_t{kFilmWidth} * kFilmHeight * kFilmPictures);
  std::minstd_rand random(1);
  for (std::uint32_t picture = 0; picture < kFilmPictures; ++picture) {
    for (std::uint32_t y = 0; y < kFilmHeight; ++y) {
      for (std::uint32_t x = 0; x < kFilmWidth; ++x) {
        // The periods are multiples of the way that the gradients move until the film repeats.
        const auto noise = static_cast<std::uint32_t>(random() >> 8) % 32;
        const std::uint32_t red = vantelink_doubles::triangle(x + y / 2 + picture * 16, 400, 20, 235);
        const std::uint32_t green = vantelink_doubles::triangle(x + 2 * y + picture * 12, 300, 20, 200);
        const std::uint32_t blue =
            vantelink_doubles::triangle(2 * x + 200 - y / 2 + picture * 8, 200, 60, 220);
        pixels.push_back((red + noise) << 16 | (green + noise) << 8 | (blue + noise));
      }
    }
  }
  return pixels;
}

}  // namespace vantelink_bench
