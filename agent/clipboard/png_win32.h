// Converts images between the open clipboard and PNG files, with GDI+. Used on the UI thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vlk::agent {

// Puts the picture of a PNG file on the clipboard as a top-down 32-bit bitmap. The fourth byte of each pixel
// is the unchanged alpha value. Does nothing if the file cannot be decoded.
void ApplyPngImage(const std::uint8_t* data, std::size_t size);

// The clipboard's bitmap as a PNG file; empty on any failure.
[[nodiscard]] std::vector<std::uint8_t> EncodeClipboardDibAsPng();

}  // namespace vlk::agent
