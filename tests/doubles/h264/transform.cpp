// The life of an encoder transform, its interfaces and its media types.
#include <mfapi.h>
#include <mferror.h>

#include <algorithm>
#include <utility>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/h264/byte_stream.h"
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

}  // namespace

EncoderTransform::EncoderTransform(Transform kind, std::unique_ptr<SessionSlot> slot)
    : kind_(kind), slot_(std::move(slot)) {
  ++codec_board().live;
  ++codec_board().activations;
  MFCreateAttributes(attributes_.GetAddressOf(), 4);
  if (codec_board().d3d_aware != 0) {
    attributes_->SetUINT32(MF_SA_D3D_AWARE, 1);
    attributes_->SetUINT32(MF_SA_D3D11_AWARE, 1);
  }
  if (!async()) return;
  attributes_->SetUINT32(MF_TRANSFORM_ASYNC, 1);
  events_ = std::make_unique<EventCounts>();
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
  if (slot_ && codec_board().keeps_session != 0) slot_->Keep();
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
  } else if (iid == IID_IMFShutdown && async()) {
    *result = static_cast<IMFShutdown*>(this);
  }
  if (*result == nullptr) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

// An asynchronous transform refuses callers that did not set MF_TRANSFORM_ASYNC_UNLOCK.
HRESULT EncoderTransform::Refusal() const {
  if (shut_down_) return MF_E_SHUTDOWN;
  UINT32 unlocked = 0;
  if (async()) attributes_->GetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, &unlocked);
  return async() && unlocked == 0 ? MF_E_TRANSFORM_ASYNC_LOCKED : S_OK;
}

HRESULT EncoderTransform::GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) {
  *info = {};
  info->dwFlags = MFT_OUTPUT_STREAM_WHOLE_SAMPLES | static_cast<DWORD>(codec_board().sample_flags.load());
  if (codec_board().no_buffer_size == 0) info->cbSize = static_cast<DWORD>(picture_size_);
  return S_OK;
}

HRESULT EncoderTransform::SetOutputType(DWORD, IMFMediaType* type, DWORD) {
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
  if (ContinueWithNewType()) return S_OK;
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

  return OpenEncoder(*type);
}

HRESULT EncoderTransform::OpenEncoder(IMFMediaType& type) {
  const CodecBoard& board = codec_board();
  if (async() && !slot_) slot_ = SessionSlot::Take();
  if (async() && !slot_) return kNoFreeSession;
  picture_size_ = static_cast<std::size_t>(board.width) * static_cast<std::size_t>(board.height) * 3 / 2;
  engine_ = std::make_unique<Engine>(EngineFormat{.width = board.width,
                                                  .height = board.height,
                                                  .fps = board.fps,
                                                  .bitrate = board.type_bitrate,
                                                  .slices = std::max(board.slices.load(), 1),
                                                  .parameter_sets_in_stream = header_in_stream()});
  if (!engine_->opened()) return MF_E_INVALIDMEDIATYPE;
  MFCreateMediaType(output_type_.ReleaseAndGetAddressOf());
  type.CopyAllItems(output_type_.Get());
  if (header_in_first_type()) PutHeaderIntoType();
  return S_OK;
}

void EncoderTransform::PutHeaderIntoType() {
  const Bytes header = sequence_header(engine_->parameter_sets());
  output_type_->SetBlob(MF_MT_MPEG_SEQUENCE_HEADER, header.data(), static_cast<UINT32>(header.size()));
}

bool EncoderTransform::ContinueWithNewType() {
  const std::lock_guard guard(lock_);
  if (!type_requested_ || type_renewed_) return false;
  type_renewed_ = true;
  if (!async()) return true;
  for (std::size_t i = 0; i < ready_.size(); ++i)
    events_->AnnounceOutput();
  events_->RequestInput();
  return true;
}

HRESULT EncoderTransform::SetInputType(DWORD, IMFMediaType* type, DWORD) {
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
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

HRESULT EncoderTransform::GetOutputAvailableType(DWORD stream, DWORD index, IMFMediaType** type) {
  return index == 0 ? GetOutputCurrentType(stream, type) : MF_E_NO_MORE_TYPES;
}

HRESULT EncoderTransform::GetOutputCurrentType(DWORD, IMFMediaType** type) {
  *type = nullptr;
  if (const HRESULT refusal = Refusal(); FAILED(refusal)) return refusal;
  return output_type_ ? output_type_.CopyTo(type) : MF_E_TRANSFORM_TYPE_NOT_SET;
}

CodecBoard& codec_board() {
  static CodecBoard& board = map_board(kCodecBoardVariable, own_board);
  return board;
}

HRESULT make_transform(Transform kind, REFIID iid, void** result) {
  std::unique_ptr<SessionSlot> slot;
  if (kind == Transform::Async && codec_board().limits_creation != 0) {
    slot = SessionSlot::Take();
    if (!slot) return kNoFreeSession;
  }
  ComPtr<IMFTransform> transform;
  // The ComPtr's Attach is not used, because the toolchain's version wrongly adds a reference.
  *transform.ReleaseAndGetAddressOf() = new EncoderTransform(kind, std::move(slot));
  return transform.CopyTo(iid, result);
}

}  // namespace vantelink_doubles
