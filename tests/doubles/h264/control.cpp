// Messages to the transform, its properties and its end.
#include <mfapi.h>
#include <mferror.h>
#include <codecapi.h>

#include <algorithm>

#include "tests/doubles/h264/encoder_transform.h"

namespace vantelink_doubles {

void EncoderTransform::StartOfStream() {
  streaming_ = true;
  if (!async()) return;
  for (int i = std::max(codec_board().first_requests.load(), 1); i > 0; --i)
    events_->RequestInput();
}

HRESULT EncoderTransform::ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR) {
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
  std::int32_t digit = 0;
  const std::lock_guard guard(lock_);
  switch (message) {
    case MFT_MESSAGE_COMMAND_FLUSH:
      digit = 1;
      ++flushes_;
      pending_.clear();
      held_.clear();
      ready_.clear();
      if (async()) events_->Cancel();
      streaming_ = false;
      break;
    case MFT_MESSAGE_NOTIFY_BEGIN_STREAMING:
      digit = 2;
      break;
    case MFT_MESSAGE_NOTIFY_START_OF_STREAM:
      digit = 3;
      StartOfStream();
      break;
    case MFT_MESSAGE_NOTIFY_END_OF_STREAM:
      digit = 4;
      streaming_ = false;
      break;
    case MFT_MESSAGE_NOTIFY_END_STREAMING:
      digit = 5;
      break;
    case MFT_MESSAGE_SET_D3D_MANAGER:
      if (codec_board().d3d_aware == 0) return E_NOTIMPL;
      digit = 6;
      break;
    default:
      return E_NOTIMPL;
  }
  codec_board().messages = codec_board().messages * 16 + digit;
  return S_OK;
}

HRESULT EncoderTransform::SetValue(const GUID* key, VARIANT* value) {
  CodecBoard& board = codec_board();
  if (board.fixed_properties != 0 && output_type_ && *key != CODECAPI_AVEncVideoForceKeyFrame) {
    ++board.refused_properties;
    return E_UNEXPECTED;
  }
  const auto number = static_cast<std::int32_t>(value->ulVal);
  if (*key == CODECAPI_AVEncVideoForceKeyFrame && value->vt == VT_UI4) {
    const std::lock_guard guard(lock_);
    force_key_ = number != 0;
    ++board.forced;
  } else if (*key == CODECAPI_AVEncCommonRateControlMode && value->vt == VT_UI4) {
    board.rate_control = number;
  } else if (*key == CODECAPI_AVEncCommonMeanBitRate && value->vt == VT_UI4) {
    board.bitrate = number;
  } else if (*key == CODECAPI_AVLowLatencyMode && value->vt == VT_BOOL) {
    board.low_latency = value->boolVal;
  } else if (*key == CODECAPI_AVEncCommonQualityVsSpeed && value->vt == VT_UI4) {
    board.speed = number;
  } else {
    return E_INVALIDARG;
  }
  return S_OK;
}

HRESULT EncoderTransform::Shutdown() {
  ++codec_board().shutdowns;
  shut_down_ = true;
  slot_.reset();
  events_->ShutDown();
  return S_OK;
}

HRESULT EncoderTransform::GetShutdownStatus(MFSHUTDOWN_STATUS* status) {
  if (!shut_down_) return MF_E_INVALIDREQUEST;
  *status = MFSHUTDOWN_COMPLETED;
  return S_OK;
}

}  // namespace vantelink_doubles
