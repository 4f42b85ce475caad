// GDI+'s headers as this build needs them, and what all its users share. Included by _win32.cpp files alone;
// the process has started GDI+.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <windows.h>
#include <objidl.h>
#include <wrl/client.h>

namespace Gdiplus {
using std::max;  // its headers ask for these by name
using std::min;
}  // namespace Gdiplus

#include <gdiplus.h>

namespace vlk {

struct ImageDisposer {
  void operator()(Gdiplus::GpImage* image) const { Gdiplus::DllExports::GdipDisposeImage(image); }
};
using UniqueImage = std::unique_ptr<Gdiplus::GpImage, ImageDisposer>;

// The first encoder for the MIME type.
std::optional<CLSID> find_image_encoder(const wchar_t* mime_type);

// A stream over a copy of the bytes; null when there is no memory for it.
Microsoft::WRL::ComPtr<IStream> stream_over_copy(const void* bytes, std::size_t size);

// All that the stream holds; empty when it cannot tell.
std::vector<std::uint8_t> read_stream(IStream* stream);

}  // namespace vlk
