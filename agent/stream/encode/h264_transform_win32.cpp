// Finds an encoder and sets its media types and properties.
#include "stream/encode/h264_transform_win32.h"

#include <codecapi.h>

#include "platform/debug_log.h"
#include "stream/encode/media_foundation_win32.h"

namespace vlk::agent {
namespace {

constexpr UINT32 kQualityVsSpeed = 33;  // 0 (fastest) to 100 (best)

// The result of a search for encoders: their activation objects.
class [[nodiscard]] FoundEncoders {
 public:
  explicit FoundEncoders(UINT32 flags) {
    const MFT_REGISTER_TYPE_INFO input = {MFMediaType_Video, MFVideoFormat_NV12};
    const MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video, MFVideoFormat_H264};
    if (FAILED(media_foundation().EnumTransforms(MFT_CATEGORY_VIDEO_ENCODER, flags, &input, &output, &found_,
                                                 &count_)))
      count_ = 0;
  }
  ~FoundEncoders() {
    for (UINT32 i = 0; i < count_; ++i) {
      // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): the call fills as many entries as it counts
      found_[i]->Release();
    }
    CoTaskMemFree(found_);
  }
  FoundEncoders(const FoundEncoders&) = delete;
  FoundEncoders& operator=(const FoundEncoders&) = delete;
  // Null if the search found no encoder.
  IMFActivate* first() const { return count_ == 0 ? nullptr : found_[0]; }

 private:
  IMFActivate** found_ = nullptr;
  UINT32 count_ = 0;
};

void set_picture(IMFMediaType& type, const H264Format& format) {
  type.SetUINT64(MF_MT_FRAME_SIZE, PackPair(format.width, format.height));
  type.SetUINT64(MF_MT_FRAME_RATE, PackPair(format.fps, 1));
  type.SetUINT64(MF_MT_PIXEL_ASPECT_RATIO, PackPair(1, 1));
  type.SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
}

void set_number(ICodecAPI& codec_api, const GUID& key, UINT32 number) {
  VARIANT value = {};
  value.vt = VT_UI4;
  value.ulVal = number;
  codec_api.SetValue(&key, &value);
}

}  // namespace

void LogEncoder(const char* message, HRESULT code) {
  append_debug_log("encoder: %s hr=0x%08lx\n", message, static_cast<unsigned long>(code));
}

bool ActivateEncoder(UINT32 flags, ComPtr<IMFTransform>& transform) {
  const FoundEncoders found(flags);
  if (found.first() == nullptr) return false;
  const HRESULT result = found.first()->ActivateObject(
      IID_IMFTransform, reinterpret_cast<void**>(transform.ReleaseAndGetAddressOf()));
  if (SUCCEEDED(result) && transform) return true;
  LogEncoder("ActivateObject failed", result);
  transform.Reset();
  return false;
}

ComPtr<IMFMediaType> MakeOutputType(const H264Format& format) {
  ComPtr<IMFMediaType> type;
  if (FAILED(media_foundation().CreateMediaType(type.ReleaseAndGetAddressOf()))) return nullptr;
  type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_H264);
  type->SetUINT32(MF_MT_AVG_BITRATE, static_cast<UINT32>(format.bitrate));
  set_picture(*type.Get(), format);
  type->SetUINT32(MF_MT_MPEG2_PROFILE, eAVEncH264VProfile_Main);
  return type;
}

ComPtr<IMFMediaType> MakeInputType(const H264Format& format) {
  ComPtr<IMFMediaType> type;
  if (FAILED(media_foundation().CreateMediaType(type.ReleaseAndGetAddressOf()))) return nullptr;
  type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_NV12);
  set_picture(*type.Get(), format);
  return type;
}

// Sets no key frame interval and no number of B frames: the caller requests each key frame.
void TuneEncoder(ICodecAPI& codec_api, std::int32_t bitrate) {
  set_number(codec_api, CODECAPI_AVEncCommonRateControlMode, eAVEncCommonRateControlMode_CBR);
  set_number(codec_api, CODECAPI_AVEncCommonMeanBitRate, static_cast<UINT32>(bitrate));
  VARIANT low_latency = {};
  low_latency.vt = VT_BOOL;
  low_latency.boolVal = VARIANT_TRUE;
  codec_api.SetValue(&CODECAPI_AVLowLatencyMode, &low_latency);
  set_number(codec_api, CODECAPI_AVEncCommonQualityVsSpeed, kQualityVsSpeed);
}

void RequestKeyFrame(ICodecAPI& codec_api) {
  set_number(codec_api, CODECAPI_AVEncVideoForceKeyFrame, 1);
}

void ReadSequenceHeader(IMFTransform& transform, std::vector<std::uint8_t>& header) {
  ComPtr<IMFMediaType> type;
  UINT32 size = 0;
  if (FAILED(transform.GetOutputCurrentType(0, type.ReleaseAndGetAddressOf())) || !type) return;
  if (FAILED(type->GetBlobSize(MF_MT_MPEG_SEQUENCE_HEADER, &size)) || size == 0) return;
  header.resize(size);
  type->GetBlob(MF_MT_MPEG_SEQUENCE_HEADER, header.data(), size, nullptr);
}

}  // namespace vlk::agent
