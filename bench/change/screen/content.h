// What the painter draws: lines of text in a made-up alphabet, and a film. The pixels are the same in each
// run, so that all viewers have the same work.
#pragma once

#include <cstdint>
#include <vector>

namespace vantelink_bench {

using Pixels = std::vector<std::uint32_t>;  // 0x00RRGGBB, row by row from the top, without padding

inline constexpr int kCellWidth = 8, kCellHeight = 16;  // of a character, in pixels
inline constexpr int kLineHeight = 24;                  // of a line of text with its spacing
inline constexpr int kFilmWidth = 640, kFilmHeight = 360;
inline constexpr int kFilmPictures = 25;  // after which the film repeats without a jump

// The character with this number, dark on white. Each sixth number or so is a blank.
Pixels character(std::uint32_t number);

// A line of text, `width` pixels wide and kLineHeight high. Lines with different numbers differ.
Pixels text_line(std::uint32_t number, int width);

// The film's pictures, one below the other: gradients that move, with some noise.
Pixels film();

}  // namespace vantelink_bench
