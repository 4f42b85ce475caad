// Copies a part of the screen with GDI. For Windows files only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {

// Calls draw(dc) with a device context over a new bitmap of `width` by `height` pixels, then stores the
// bitmap in `pixels` as packed, top-down rows of 4 bytes per pixel. Every failure is ignored: the picture is
// then black.
template <typename Draw>
void copy_screen(HDC screen, int width, int height, std::vector<std::uint8_t>& pixels, Draw draw) {
  const UniqueMemoryDc memory(CreateCompatibleDC(screen));
  const UniqueBitmap bitmap(CreateCompatibleBitmap(screen, width, height));
  const Selection selection(memory.get(), bitmap.get());
  draw(memory.get());

  BITMAPINFO info = top_down_bitmap(width, height);
  pixels.resize(std::size_t{static_cast<std::uint32_t>(height)} * static_cast<std::uint32_t>(width) * 4);
  GetDIBits(memory.get(), bitmap.get(), 0, static_cast<UINT>(height), pixels.data(), &info, DIB_RGB_COLORS);
}

}  // namespace vlk::agent
