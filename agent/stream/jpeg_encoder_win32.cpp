// JPEG by GDI+, which the process has started.
#include "stream/jpeg_encoder.h"

#include <objidl.h>
#include <windows.h>
#include <wrl/client.h>

#include <gdiplus.h>

#include <cwchar>
#include <memory>
#include <optional>

namespace vlk::agent {
namespace {

using Microsoft::WRL::ComPtr;
namespace gdip = Gdiplus::DllExports;

struct ImageDisposer {
  void operator()(Gdiplus::GpImage* image) const { gdip::GdipDisposeImage(image); }
};

// The first encoder that makes JPEG files.
std::optional<CLSID> find_jpeg_encoder() {
  UINT count = 0;
  UINT size = 0;
  gdip::GdipGetImageEncodersSize(&count, &size);
  if (size == 0) return std::nullopt;
  // The records come first, and the texts that they point at follow in the same block.
  const auto block = std::make_unique<BYTE[]>(size);
  const auto* encoders = reinterpret_cast<Gdiplus::ImageCodecInfo*>(block.get());
  gdip::GdipGetImageEncoders(count, size, reinterpret_cast<Gdiplus::ImageCodecInfo*>(block.get()));
  for (UINT i = 0; i < count; ++i) {
    if (std::wcscmp(encoders[i].MimeType, L"image/jpeg") == 0) return encoders[i].Clsid;
  }
  return std::nullopt;
}

std::vector<std::uint8_t> read_stream(IStream* stream) {
  STATSTG status = {};
  stream->Stat(&status, STATFLAG_NONAME);
  std::vector<std::uint8_t> bytes(status.cbSize.LowPart);
  stream->Seek({}, STREAM_SEEK_SET, nullptr);
  ULONG read = 0;
  stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read);
  bytes.resize(read);
  return bytes;
}

}  // namespace

std::vector<std::uint8_t> EncodeJpeg(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t stride, std::uint32_t quality) {
  const std::optional<CLSID> encoder = find_jpeg_encoder();
  if (!encoder) return {};

  // The bitmap lies over the caller's memory, which GDI+ takes as writable and only reads here. One that
  // could not be made shows up as a failure to save.
  Gdiplus::GpBitmap* made = nullptr;
  gdip::GdipCreateBitmapFromScan0(static_cast<INT>(width), static_cast<INT>(height), static_cast<INT>(stride),
                                  PixelFormat32bppRGB, const_cast<BYTE*>(pixels), &made);
  const std::unique_ptr<Gdiplus::GpImage, ImageDisposer> bitmap(made);

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
