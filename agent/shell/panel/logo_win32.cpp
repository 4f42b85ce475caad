// Decodes and draws the logo with GDI+.
#include "shell/panel/logo_win32.h"

#include "platform/win32/gdiplus_win32.h"
#include "resources/resource.h"

namespace vlk::agent {
namespace {

using Gdiplus::DllExports::GdipCreateFromHDC;
using Gdiplus::DllExports::GdipDeleteGraphics;
using Gdiplus::DllExports::GdipDisposeImage;
using Gdiplus::DllExports::GdipDrawImageRectI;
using Gdiplus::DllExports::GdipLoadImageFromStream;
using Gdiplus::DllExports::GdipSetInterpolationMode;

// A stream over a copy of the resource; null on any failure.
Microsoft::WRL::ComPtr<IStream> open_resource() {
  const HMODULE module = GetModuleHandleW(nullptr);
  const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(IDR_LOGO), RT_RCDATA);
  if (found == nullptr) return nullptr;
  const DWORD size = SizeofResource(module, found);
  const HGLOBAL loaded = LoadResource(module, found);
  if (size == 0 || loaded == nullptr) return nullptr;
  return stream_over_copy(LockResource(loaded), size);
}

}  // namespace

void LogoDeleter::operator()(Gdiplus::GpImage* image) const {
  GdipDisposeImage(image);
}

Logo load_logo() {
  const Microsoft::WRL::ComPtr<IStream> stream = open_resource();
  Gdiplus::GpImage* image = nullptr;
  if (!stream || GdipLoadImageFromStream(stream.Get(), &image) != Gdiplus::Ok) return {};
  return Logo(image);
}

void draw_logo(HDC dc, const Logo& logo, int x, int y, int width, int height) {
  Gdiplus::GpGraphics* graphics = nullptr;
  GdipCreateFromHDC(dc, &graphics);
  GdipSetInterpolationMode(graphics, Gdiplus::InterpolationModeHighQualityBicubic);
  GdipDrawImageRectI(graphics, logo.get(), x, y, width, height);
  GdipDeleteGraphics(graphics);
}

}  // namespace vlk::agent
