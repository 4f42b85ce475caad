// Decoding and drawing the logo by GDI+.
#include "shell/logo_win32.h"

#include <objidl.h>

#include <algorithm>
#include <cstring>

namespace Gdiplus {
using std::max;  // its headers ask for these by name
using std::min;
}  // namespace Gdiplus

#include <gdiplus.h>
#include <wrl/client.h>

#include "resources/resource.h"

namespace vlk::agent {
namespace {

using Gdiplus::DllExports::GdipCreateFromHDC;
using Gdiplus::DllExports::GdipDeleteGraphics;
using Gdiplus::DllExports::GdipDisposeImage;
using Gdiplus::DllExports::GdipDrawImageRectI;
using Gdiplus::DllExports::GdipLoadImageFromStream;
using Gdiplus::DllExports::GdipSetInterpolationMode;

// A stream over a copy of the resource; null on any miss.
Microsoft::WRL::ComPtr<IStream> open_resource() {
  Microsoft::WRL::ComPtr<IStream> stream;
  const HMODULE module = GetModuleHandleW(nullptr);
  const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(IDR_LOGO), RT_RCDATA);
  if (found == nullptr) return stream;
  const DWORD size = SizeofResource(module, found);
  const HGLOBAL loaded = LoadResource(module, found);
  if (size == 0 || loaded == nullptr) return stream;
  const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
  if (memory == nullptr) return stream;
  if (void* const bytes = GlobalLock(memory)) {
    std::memcpy(bytes, LockResource(loaded), size);
    GlobalUnlock(memory);
  }
  // The stream owns the memory from here on.
  if (FAILED(CreateStreamOnHGlobal(memory, TRUE, &stream))) GlobalFree(memory);
  return stream;
}

}  // namespace

void LogoDeleter::operator()(void* image) const {
  GdipDisposeImage(static_cast<Gdiplus::GpImage*>(image));
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
  GdipDrawImageRectI(graphics, static_cast<Gdiplus::GpImage*>(logo.get()), x, y, width, height);
  GdipDeleteGraphics(graphics);
}

}  // namespace vlk::agent
