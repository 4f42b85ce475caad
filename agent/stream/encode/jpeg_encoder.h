// Encodes an image in memory as a JPEG file in memory.
#pragma once

#include <cstdint>
#include <vector>

namespace vlk::agent {

// Encodes `height` top-down rows of `stride` bytes. The bytes of a pixel are blue, green, red and an unused
// byte. `quality` is passed to the encoder unchanged. Empty on any failure. Callable on any thread while GDI+
// is running.
std::vector<std::uint8_t> EncodeJpeg(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t stride, std::uint32_t quality);

}  // namespace vlk::agent
