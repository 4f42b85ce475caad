// One 32-bit image in memory to one JPEG file in memory.
#pragma once

#include <cstdint>
#include <vector>

namespace vlk::agent {

// `height` rows of `stride` bytes, top-down, blue, green, red and a byte that has no effect. `quality` goes
// to the encoder as it stands. Empty on any failure. Callable from any thread while GDI+ is running.
std::vector<std::uint8_t> EncodeJpeg(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t stride, std::uint32_t quality);

}  // namespace vlk::agent
