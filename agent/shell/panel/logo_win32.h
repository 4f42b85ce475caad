// The logo from the executable's resources.
#pragma once

#include <memory>

#include <windows.h>

namespace vlk::agent {

struct LogoDeleter {
  void operator()(void* image) const;
};

// A GDI+ image. Empty when the resource is missing or cannot be decoded.
using Logo = std::unique_ptr<void, LogoDeleter>;

Logo load_logo();

// Fills the given rectangle with it; the picture's own proportions are not kept.
void draw_logo(HDC dc, const Logo& logo, int x, int y, int width, int height);

}  // namespace vlk::agent
