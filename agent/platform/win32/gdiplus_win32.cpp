// Image encoders and streams for GDI+.
#include "platform/win32/gdiplus_win32.h"

#include <cstring>
#include <cwchar>

#include "platform/win32/handles_win32.h"

namespace vlk {

namespace gdip = Gdiplus::DllExports;
using Microsoft::WRL::ComPtr;

std::optional<CLSID> find_image_encoder(const wchar_t* mime_type) {
  UINT count = 0;
  UINT size = 0;
  gdip::GdipGetImageEncodersSize(&count, &size);
  if (size == 0) return std::nullopt;
  // The block begins with the records; the texts that they point to follow.
  const auto block = std::make_unique<BYTE[]>(size);
  const auto* encoders = reinterpret_cast<Gdiplus::ImageCodecInfo*>(block.get());
  gdip::GdipGetImageEncoders(count, size, reinterpret_cast<Gdiplus::ImageCodecInfo*>(block.get()));
  for (UINT i = 0; i < count; ++i) {
    // The type is null if the call above failed: the records are then empty.
    const wchar_t* const type = encoders[i].MimeType;
    if (type != nullptr && std::wcscmp(type, mime_type) == 0) return encoders[i].Clsid;
  }
  return std::nullopt;
}

ComPtr<IStream> stream_over_copy(const void* bytes, std::size_t size) {
  ComPtr<IStream> stream;
  UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, size));
  if (!memory) return stream;
  {
    // The address is null for an empty block, which cannot be locked.
    const LockedGlobal locked(memory.get());
    if (locked.get() != nullptr) std::memcpy(locked.get(), bytes, size);
  }
  // The stream owns the memory from here on.
  if (SUCCEEDED(CreateStreamOnHGlobal(memory.get(), TRUE, stream.ReleaseAndGetAddressOf())))
    (void)memory.release();
  return stream;
}

std::vector<std::uint8_t> read_stream(IStream* stream) {
  STATSTG status = {};
  if (FAILED(stream->Stat(&status, STATFLAG_NONAME))) return {};
  std::vector<std::uint8_t> bytes(status.cbSize.LowPart);
  stream->Seek({}, STREAM_SEEK_SET, nullptr);
  ULONG read = 0;
  stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read);
  bytes.resize(read);
  return bytes;
}

}  // namespace vlk
