// Encodes and decodes PNG files with FFmpeg, which shares no code with the agent's image library.
#pragma once

#include <string>

namespace vantelink_test {

// A picture. `pixels` has 4 bytes a pixel (red, green, blue, alpha), the top left pixel first.
struct PngPicture {
  int width = 0, height = 0;
  std::string pixels;
};

// Both functions throw std::runtime_error on any error. A file without an alpha channel decodes as opaque.
std::string encode_png(const PngPicture& picture);
PngPicture decode_png(const std::string& file);

}  // namespace vantelink_test
