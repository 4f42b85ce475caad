// Images between the open clipboard and PNG files, by GDI+. UI thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vlk::agent {

// Puts the picture on the clipboard as a top-down 32-bit bitmap, the fourth byte being its alpha channel as
// it stands. A file that cannot be decoded puts nothing there.
void ApplyPngImage(const std::uint8_t* data, std::size_t size);

// The clipboard's bitmap as a PNG file; empty on any failure.
std::vector<std::uint8_t> EncodeClipboardDibAsPng();

}  // namespace vlk::agent
