// Encodes JPEG with GDI+, which the process has started.
#include "stream/encode/jpeg_encoder.h"

#include <memory>
#include <optional>

#include "platform/win32/gdiplus_win32.h"

namespace vlk::agent {
namespace {

using Microsoft::WRL::ComPtr;
namespace gdip = Gdiplus::DllExports;

}  // namespace

std::vector<std::uint8_t> EncodeJpeg(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t stride, std::uint32_t quality) {
  const std::optional<CLSID> encoder = find_image_encoder(L"image/jpeg");
  if (!encoder) return {};

  // The bitmap uses the caller's memory. GDI+ requires a pointer to writable memory but only reads from it
  // here. If the bitmap cannot be created, saving it fails below.
  Gdiplus::GpBitmap* made = nullptr;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
  auto* const memory = const_cast<BYTE*>(pixels);
  gdip::GdipCreateBitmapFromScan0(static_cast<INT>(width), static_cast<INT>(height), static_cast<INT>(stride),
                                  PixelFormat32bppRGB, memory, &made);
  const UniqueImage bitmap(made);

  ULONG quality_value = quality;
  Gdiplus::EncoderParameters parameters = {};
  parameters.Count = 1;
  parameters.Parameter[0].Guid = Gdiplus::EncoderQuality;
  parameters.Parameter[0].NumberOfValues = 1;
  parameters.Parameter[0].Type = Gdiplus::EncoderParameterValueTypeLong;
  parameters.Parameter[0].Value = &quality_value;

  ComPtr<IStream> stream;
  if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, stream.ReleaseAndGetAddressOf()))) return {};
  if (gdip::GdipSaveImageToStream(bitmap.get(), stream.Get(), &*encoder, &parameters) != Gdiplus::Ok)
    return {};
  return read_stream(stream.Get());
}

}  // namespace vlk::agent
