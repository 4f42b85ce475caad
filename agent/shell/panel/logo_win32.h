// The logo, loaded from the executable's resources.
#pragma once

#include <windows.h>

#include <memory>

namespace Gdiplus {
class GpImage;
}

namespace vlk::agent {

struct LogoDeleter {
  void operator()(Gdiplus::GpImage* image) const;
};
using Logo = std::unique_ptr<Gdiplus::GpImage, LogoDeleter>;

// Loads the logo. Empty if the resource is missing or cannot be decoded.
[[nodiscard]] Logo load_logo();

// Draws the logo into the given rectangle without keeping its proportions.
void draw_logo(HDC dc, const Logo& logo, int x, int y, int width, int height);

}  // namespace vlk::agent
