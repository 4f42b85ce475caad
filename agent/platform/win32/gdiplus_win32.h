// The headers of GDI+, with the declarations that they need, and functions that all users of GDI+ share. For
// Windows files only. The process must have started GDI+.
#pragma once

#include <windows.h>
#include <objidl.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Gdiplus {
using std::max;  // the headers of GDI+ use these names unqualified
using std::min;
}  // namespace Gdiplus

#include <gdiplus.h>

namespace vlk {

struct ImageDisposer {
  void operator()(Gdiplus::GpImage* image) const { Gdiplus::DllExports::GdipDisposeImage(image); }
};
using UniqueImage = std::unique_ptr<Gdiplus::GpImage, ImageDisposer>;

// The system's first encoder for the MIME type; no value if there is none.
[[nodiscard]] std::optional<CLSID> find_image_encoder(const wchar_t* mime_type);

// Makes a stream over a copy of the bytes; null if memory runs out.
[[nodiscard]] Microsoft::WRL::ComPtr<IStream> stream_over_copy(const void* bytes, std::size_t size);

// The whole content of the stream; empty on failure.
[[nodiscard]] std::vector<std::uint8_t> read_stream(IStream* stream);

}  // namespace vlk
