// The double's encoder transform: media types, settings and the calls of IMFTransform and ICodecAPI.
#include <mfapi.h>
#include <mferror.h>
#include <codecapi.h>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/h264/encoder_transform.h"

namespace vantelink_doubles {
namespace {

// Limits of a picture's width and height, in pixels.
constexpr std::int32_t kSmallestSide = 16, kLargestSide = 4096;

CodecBoard own_board;

std::int32_t low_half(UINT64 value) {
  return static_cast<std::int32_t>(value & 0xFFFFFFFF);
}

std::int32_t high_half(UINT64 value) {
  return static_cast<std::int32_t>(value >> 32);
}

std::int32_t number_of(IMFMediaType& type, REFGUID key) {
  UINT32 value = 0;
  type.GetUINT32(key, &value);
  return static_cast<std::int32_t>(value);
}

bool encodable(std::int32_t side) {
  return side >= kSmallestSide && side <= kLargestSide && side % 2 == 0;
}

// Returns the parameter sets, followed by filler (NAL type 12) up to the size set on the board.
Bytes sequence_header(const Bytes& parameter_sets) {
  Bytes header = parameter_sets;
  const auto wanted = static_cast<std::size_t>(codec_board().header_bytes);
  if (wanted <= header.size()) return header;
  const std::uint8_t filler[] = {0, 0, 0, 1, 12};
  header.insert(header.end(), filler, filler + sizeof(filler));
  header.resize(wanted, 0xFF);
  header.push_back(0x80);
  return header;
}

}  // namespace

EncoderTransform::EncoderTransform(Transform kind) : kind_(kind) {
  ++codec_board().live;
  ++codec_board().activations;
  MFCreateAttributes(attributes_.GetAddressOf(), 2);
  if (!async()) return;
  attributes_->SetUINT32(MF_TRANSFORM_ASYNC, 1);
  MFCreateEventQueue(events_.GetAddressOf());
  thread_ = std::thread([this] { Work(); });
}

EncoderTransform::~EncoderTransform() {
  if (thread_.joinable()) {
    {
      const std::lock_guard guard(lock_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  if (events_) events_->Shutdown();
  --codec_board().live;
}

HRESULT EncoderTransform::QueryInterface(REFIID iid, void** result) {
  *result = nullptr;
  if (iid == IID_IUnknown || iid == IID_IMFTransform) {
    *result = static_cast<IMFTransform*>(this);
  } else if (iid == IID_ICodecAPI && codec_board().no_codec_api == 0) {
    *result = static_cast<ICodecAPI*>(this);
  } else if (iid == IID_IMFMediaEventGenerator && async()) {
    *result = static_cast<IMFMediaEventGenerator*>(this);
  }
  if (*result == nullptr) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

// An asynchronous transform refuses callers that did not set MF_TRANSFORM_ASYNC_UNLOCK.
bool EncoderTransform::locked() const {
  UINT32 unlocked = 0;
  return async() && (FAILED(attributes_->GetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, &unlocked)) || unlocked == 0);
}

HRESULT EncoderTransform::GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) {
  *info = {};
  info->dwFlags = MFT_OUTPUT_STREAM_WHOLE_SAMPLES | static_cast<DWORD>(codec_board().sample_flags.load());
  if (codec_board().no_buffer_size == 0) info->cbSize = static_cast<DWORD>(picture_size_);
  return S_OK;
}

HRESULT EncoderTransform::SetOutputType(DWORD, IMFMediaType* type, DWORD) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (codec_board().output_type_result != 0) return codec_board().output_type_result;
  UINT64 size = 0, rate = 0;
  if (FAILED(type->GetUINT64(MF_MT_FRAME_SIZE, &size)) || FAILED(type->GetUINT64(MF_MT_FRAME_RATE, &rate))) {
    return MF_E_INVALIDMEDIATYPE;
  }
  CodecBoard& board = codec_board();
  board.width = high_half(size);
  board.height = low_half(size);
  board.fps = high_half(rate);
  board.type_bitrate = number_of(*type, MF_MT_AVG_BITRATE);
  board.profile = number_of(*type, MF_MT_MPEG2_PROFILE);
  board.interlace = number_of(*type, MF_MT_INTERLACE_MODE);
  board.messages = 0;
  if (!encodable(board.width) || !encodable(board.height) || board.fps < 1) return MF_E_INVALIDMEDIATYPE;

  picture_size_ = static_cast<std::size_t>(board.width) * static_cast<std::size_t>(board.height) * 3 / 2;
  engine_ = std::make_unique<Engine>(board.width, board.height, board.fps, board.type_bitrate,
                                     board.no_header != 0);
  if (!engine_->opened()) return MF_E_INVALIDMEDIATYPE;
  MFCreateMediaType(output_type_.ReleaseAndGetAddressOf());
  type->CopyAllItems(output_type_.Get());
  if (board.no_header == 0) {
    const Bytes header = sequence_header(engine_->parameter_sets());
    output_type_->SetBlob(MF_MT_MPEG_SEQUENCE_HEADER, header.data(), static_cast<UINT32>(header.size()));
  }
  return S_OK;
}

HRESULT EncoderTransform::SetInputType(DWORD, IMFMediaType* type, DWORD) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (codec_board().input_type_result != 0) return codec_board().input_type_result;
  if (!output_type_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  GUID format = {};
  UINT64 size = 0, output_size = 0;
  output_type_->GetUINT64(MF_MT_FRAME_SIZE, &output_size);
  if (FAILED(type->GetGUID(MF_MT_SUBTYPE, &format)) || format != MFVideoFormat_NV12 ||
      FAILED(type->GetUINT64(MF_MT_FRAME_SIZE, &size)) || size != output_size) {
    return MF_E_INVALIDMEDIATYPE;
  }
  ++codec_board().sessions;
  return S_OK;
}

HRESULT EncoderTransform::GetOutputCurrentType(DWORD, IMFMediaType** type) {
  *type = nullptr;
  return output_type_ ? output_type_.CopyTo(type) : MF_E_TRANSFORM_TYPE_NOT_SET;
}

HRESULT EncoderTransform::ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR) {
  std::int32_t digit = 0;
  switch (message) {
    case MFT_MESSAGE_COMMAND_FLUSH: {
      const std::lock_guard guard(lock_);
      pending_.clear();
      ready_.clear();
      digit = 1;
      break;
    }
    case MFT_MESSAGE_NOTIFY_BEGIN_STREAMING:
      digit = 2;
      break;
    case MFT_MESSAGE_NOTIFY_START_OF_STREAM:
      digit = 3;
      if (async()) QueueSimpleEvent(METransformNeedInput);
      break;
    case MFT_MESSAGE_NOTIFY_END_OF_STREAM:
      digit = 4;
      break;
    case MFT_MESSAGE_NOTIFY_END_STREAMING:
      digit = 5;
      break;
    default:
      return E_NOTIMPL;
  }
  codec_board().messages = codec_board().messages * 16 + digit;
  return S_OK;
}

HRESULT EncoderTransform::SetValue(const GUID* key, VARIANT* value) {
  CodecBoard& board = codec_board();
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

CodecBoard& codec_board() {
  static CodecBoard& board = map_board(kCodecBoardVariable, own_board);
  return board;
}

HRESULT make_transform(Transform kind, REFIID iid, void** result) {
  ComPtr<IMFTransform> transform;
  // The ComPtr's Attach is not used, because the toolchain's version wrongly adds a reference.
  *transform.ReleaseAndGetAddressOf() = new EncoderTransform(kind);
  return transform.CopyTo(iid, result);
}

}  // namespace vantelink_doubles
