// PNG files assembled by hand, so that the test of an image decoder does not depend on that decoder's
// library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantelink_test {

// A PNG file, uncompressed. `pixels` has 4 bytes a pixel (red, green, blue, alpha), the top left pixel first.
std::string make_png(std::uint32_t width, std::uint32_t height, std::string_view pixels);

}  // namespace vantelink_test
