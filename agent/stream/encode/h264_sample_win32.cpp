// Creates and reads media samples.
#include "stream/encode/h264_sample_win32.h"

#include <cstring>

#include "stream/encode/media_foundation_win32.h"

namespace vlk::agent {
namespace {

using Microsoft::WRL::ComPtr;

// Locks a buffer's memory. bytes() is null on failure.
class [[nodiscard]] LockedBuffer {
 public:
  explicit LockedBuffer(IMFMediaBuffer& buffer) : buffer_(buffer) {
    if (FAILED(buffer_.Lock(&bytes_, &capacity_, &size_))) bytes_ = nullptr;
  }
  ~LockedBuffer() {
    if (bytes_ != nullptr) buffer_.Unlock();
  }
  LockedBuffer(const LockedBuffer&) = delete;
  LockedBuffer& operator=(const LockedBuffer&) = delete;
  std::uint8_t* bytes() const { return bytes_; }
  DWORD size() const { return size_; }

 private:
  IMFMediaBuffer& buffer_;
  BYTE* bytes_ = nullptr;
  DWORD capacity_ = 0, size_ = 0;
};

ComPtr<IMFSample> make_sample(IMFMediaBuffer* buffer) {
  ComPtr<IMFSample> sample;
  if (FAILED(media_foundation().CreateSample(sample.ReleaseAndGetAddressOf()))) return nullptr;
  if (buffer != nullptr) sample->AddBuffer(buffer);
  return sample;
}

}  // namespace

ComPtr<IMFSample> MakeEmptySample(DWORD size) {
  ComPtr<IMFMediaBuffer> buffer;
  if (FAILED(media_foundation().CreateMemoryBuffer(size, buffer.ReleaseAndGetAddressOf()))) buffer.Reset();
  return make_sample(buffer.Get());
}

ComPtr<IMFSample> MakeFilledSample(const std::uint8_t* bytes, DWORD size, LONGLONG time, LONGLONG duration) {
  ComPtr<IMFMediaBuffer> buffer;
  if (SUCCEEDED(media_foundation().CreateMemoryBuffer(size, buffer.ReleaseAndGetAddressOf()))) {
    {
      const LockedBuffer locked(*buffer.Get());
      if (locked.bytes() != nullptr) std::memcpy(locked.bytes(), bytes, size);
    }
    buffer->SetCurrentLength(size);
  }
  ComPtr<IMFSample> sample = make_sample(buffer.Get());
  if (!sample) return nullptr;
  sample->SetSampleTime(time);
  sample->SetSampleDuration(duration);
  return sample;
}

void AppendSample(IMFSample& sample, const std::vector<std::uint8_t>& header,
                  std::vector<std::uint8_t>& out) {
  UINT32 clean_point = 0;
  if (SUCCEEDED(sample.GetUINT32(MFSampleExtension_CleanPoint, &clean_point)) && clean_point != 0)
    out.insert(out.end(), header.begin(), header.end());
  ComPtr<IMFMediaBuffer> buffer;
  if (FAILED(sample.ConvertToContiguousBuffer(buffer.ReleaseAndGetAddressOf()))) return;
  const LockedBuffer locked(*buffer.Get());
  if (locked.bytes() != nullptr) out.insert(out.end(), locked.bytes(), locked.bytes() + locked.size());
}

}  // namespace vlk::agent
