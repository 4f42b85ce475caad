// PNG files by FFmpeg, which shares nothing with the agent's image library.
#pragma once

#include <string>

namespace vantelink_test {

// A picture of 4 bytes a pixel, red, green, blue, alpha, from the upper left on.
struct PngPicture {
  int width = 0, height = 0;
  std::string pixels;
};

// Both throw std::runtime_error on any fault. A file without an alpha channel decodes as opaque.
std::string encode_png(const PngPicture& picture);
PngPicture decode_png(const std::string& file);

}  // namespace vantelink_test
