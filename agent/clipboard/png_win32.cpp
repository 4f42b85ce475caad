// Converts between PNG files and clipboard bitmaps.
#include "clipboard/png_win32.h"

#include <cstring>
#include <optional>

#include "clipboard/bitmap_layout.h"
#include "clipboard/opened_win32.h"
#include "platform/win32/gdiplus_win32.h"

namespace vlk::agent {
namespace {

using Microsoft::WRL::ComPtr;
namespace gdip = Gdiplus::DllExports;

constexpr std::size_t kBytesPerPixel = 4;

// Locks a picture's pixels for reading. The bytes of a pixel are blue, green, red and alpha. Must be
// destroyed before the picture.
class [[nodiscard]] LockedPixels {
 public:
  LockedPixels(Gdiplus::GpBitmap* bitmap, UINT width, UINT height) : bitmap_(bitmap) {
    const Gdiplus::Rect all(0, 0, static_cast<INT>(width), static_cast<INT>(height));
    locked_ = gdip::GdipBitmapLockBits(bitmap_, &all, Gdiplus::ImageLockModeRead, PixelFormat32bppARGB,
                                       &data_) == Gdiplus::Ok;
  }
  ~LockedPixels() {
    if (locked_) gdip::GdipBitmapUnlockBits(bitmap_, &data_);
  }
  LockedPixels(const LockedPixels&) = delete;
  LockedPixels& operator=(const LockedPixels&) = delete;
  explicit operator bool() const { return locked_; }
  const std::uint8_t* row(std::size_t y) const {
    return static_cast<const std::uint8_t*>(data_.Scan0) + static_cast<std::ptrdiff_t>(y) * data_.Stride;
  }

 private:
  Gdiplus::GpBitmap* const bitmap_;
  Gdiplus::BitmapData data_ = {};
  bool locked_ = false;
};

void publish_pixels(const LockedPixels& pixels, UINT width, UINT height) {
  const BITMAPINFOHEADER header =
      top_down_bitmap(static_cast<LONG>(width), static_cast<LONG>(height)).bmiHeader;
  const std::size_t row_size = width * kBytesPerPixel;
  UniqueGlobal dib(GlobalAlloc(GMEM_MOVEABLE, height * row_size + sizeof header));
  if (!dib) return;
  {
    const LockedGlobal memory(dib.get());
    auto* const bytes = static_cast<std::uint8_t*>(memory.get());
    std::memcpy(bytes, &header, sizeof header);
    for (std::size_t y = 0; y < height; ++y)
      std::memcpy(bytes + sizeof header + y * row_size, pixels.row(y), row_size);
  }
  publish(CF_DIB, std::move(dib));
}

std::vector<std::uint8_t> encode_png(const BITMAPINFO& info, void* pixels) {
  Gdiplus::GpBitmap* made = nullptr;
  const Gdiplus::GpStatus status = gdip::GdipCreateBitmapFromGdiDib(&info, pixels, &made);
  const UniqueImage bitmap(made);
  if (status != Gdiplus::Ok) return {};
  ComPtr<IStream> stream;
  if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, stream.ReleaseAndGetAddressOf()))) return {};
  const std::optional<CLSID> encoder = find_image_encoder(L"image/png");
  if (!encoder) return {};
  if (gdip::GdipSaveImageToStream(bitmap.get(), stream.Get(), &*encoder, nullptr) != Gdiplus::Ok) return {};
  return read_stream(stream.Get());
}

}  // namespace

void ApplyPngImage(const std::uint8_t* data, std::size_t size) {
  const ComPtr<IStream> stream = stream_over_copy(data, size);
  if (!stream) return;
  Gdiplus::GpBitmap* made = nullptr;
  const Gdiplus::GpStatus status = gdip::GdipCreateBitmapFromStream(stream.Get(), &made);
  const UniqueImage bitmap(made);
  if (status != Gdiplus::Ok) return;
  UINT width = 0;
  UINT height = 0;
  gdip::GdipGetImageWidth(bitmap.get(), &width);
  gdip::GdipGetImageHeight(bitmap.get(), &height);
  const LockedPixels pixels(made, width, height);
  if (pixels) publish_pixels(pixels, width, height);
}

std::vector<std::uint8_t> EncodeClipboardDibAsPng() {
  const HGLOBAL dib = GetClipboardData(CF_DIB);
  if (dib == nullptr) return {};
  const LockedGlobal memory(dib);
  if (memory.get() == nullptr) return {};
  const auto& info = *static_cast<const BITMAPINFO*>(memory.get());
  // The sizes in the header come from a local program and are not checked against the size of the memory.
  const std::size_t offset = BitmapPixelOffset({info.bmiHeader.biSize, info.bmiHeader.biBitCount,
                                                info.bmiHeader.biCompression, info.bmiHeader.biClrUsed});
  return encode_png(info, static_cast<std::uint8_t*>(memory.get()) + offset);
}

}  // namespace vlk::agent
