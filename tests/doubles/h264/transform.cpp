// The transforms over the real encoder, with the failures and oddities that the board asks for.
#include "tests/doubles/h264/transform.h"

// clang-format off: the toolchain's headers need this order
#include <codecapi.h>
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <strmif.h>
// clang-format on
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/h264/engine.h"
#include "tests/doubles/h264/unsupported.h"

#include <wrl/client.h>

namespace vantelink_doubles {
namespace {

using Microsoft::WRL::ComPtr;

constexpr std::int32_t kSmallestSide = 16, kLargestSide = 4096;  // of a picture, in pixels
constexpr auto kSilenceStep = std::chrono::milliseconds(5);

CodecBoard own_board;

struct Input {
  Bytes nv12;
  bool force_key = false;
  LONGLONG time = 0, duration = 0;
};

struct Output {
  EncodedFrame frame;
  LONGLONG time = 0, duration = 0;
};

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

// The parameter sets, followed by as much filler (NAL type 12) as the board asks for.
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

class EncoderTransform final : public UnsupportedTransform,
                               public UnsupportedCodecApi,
                               public IMFMediaEventGenerator {
 public:
  explicit EncoderTransform(Transform kind) : kind_(kind) {
    ++codec_board().live;
    ++codec_board().activations;
    MFCreateAttributes(attributes_.GetAddressOf(), 2);
    if (!async()) return;
    attributes_->SetUINT32(MF_TRANSFORM_ASYNC, 1);
    MFCreateEventQueue(events_.GetAddressOf());
    thread_ = std::thread([this] { Work(); });
  }

  // IUnknown
  STDMETHODIMP QueryInterface(REFIID iid, void** result) override;
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
  STDMETHODIMP_(ULONG) Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  // IMFTransform
  STDMETHODIMP GetAttributes(IMFAttributes** attributes) override { return attributes_.CopyTo(attributes); }
  STDMETHODIMP GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) override;
  STDMETHODIMP SetOutputType(DWORD, IMFMediaType* type, DWORD) override;
  STDMETHODIMP SetInputType(DWORD, IMFMediaType* type, DWORD) override;
  STDMETHODIMP GetOutputCurrentType(DWORD, IMFMediaType** type) override;
  STDMETHODIMP ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR) override;
  STDMETHODIMP ProcessInput(DWORD, IMFSample* sample, DWORD) override;
  STDMETHODIMP ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) override;

  // ICodecAPI
  STDMETHODIMP SetValue(const GUID* key, VARIANT* value) override;

  // IMFMediaEventGenerator
  STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override {
    return events_->GetEvent(flags, event);
  }
  STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
    return events_->BeginGetEvent(callback, state);
  }
  STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
    return events_->EndGetEvent(result, event);
  }
  STDMETHODIMP QueueEvent(MediaEventType type, REFGUID extended, HRESULT status,
                          const PROPVARIANT* value) override {
    return events_->QueueEventParamVar(type, extended, status, value);
  }

 private:
  ~EncoderTransform() override;

  bool async() const { return kind_ == Transform::Async; }
  bool locked() const;
  HRESULT Take(IMFSample* sample, Input& input) const;
  std::size_t Encode(const Input& input);
  void Work();
  void Tell(MediaEventType type) { events_->QueueEventParamVar(type, GUID_NULL, S_OK, nullptr); }
  HRESULT Deliver(const Output& output, MFT_OUTPUT_DATA_BUFFER& target) const;

  const Transform kind_;
  LONG references_ = 1;
  ComPtr<IMFAttributes> attributes_;
  ComPtr<IMFMediaType> output_type_;
  ComPtr<IMFMediaEventQueue> events_;
  std::unique_ptr<Engine> engine_;  // after the types are set used by one thread alone
  std::size_t picture_size_ = 0;    // bytes

  std::mutex lock_;  // guards all below
  std::condition_variable changed_;
  bool stopping_ = false;
  bool force_key_ = false;
  bool released_ = false;  // the frames buffered at the start are on their way
  std::deque<Input> pending_;
  std::deque<Output> ready_;
  std::thread thread_;
};

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

// An asynchronous transform refuses to work for callers that did not say that they know it is one.
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
      if (async()) Tell(METransformNeedInput);
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

HRESULT EncoderTransform::Take(IMFSample* sample, Input& input) const {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  HRESULT result = sample->ConvertToContiguousBuffer(buffer.GetAddressOf());
  if (FAILED(result) || FAILED(result = buffer->Lock(&bytes, nullptr, &length))) return result;
  if (length == picture_size_) input.nv12.assign(bytes, bytes + length);
  buffer->Unlock();
  if (length != picture_size_) return E_INVALIDARG;
  sample->GetSampleTime(&input.time);
  sample->GetSampleDuration(&input.duration);
  return S_OK;
}

HRESULT EncoderTransform::ProcessInput(DWORD, IMFSample* sample, DWORD) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (const HRESULT result = codec_board().process_input_result; result != 0) {
    if (async()) Tell(METransformNeedInput);  // it still wants one
    return result;
  }
  if (!engine_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  Input input;
  if (const HRESULT result = Take(sample, input); FAILED(result)) return result;
  ++codec_board().inputs;
  // The frame index times the duration outgrows the cell after some minutes, which no test takes.
  codec_board().time = static_cast<std::int32_t>(input.time);
  codec_board().duration = static_cast<std::int32_t>(input.duration);
  {
    const std::lock_guard guard(lock_);
    if (!async() && released_ && !ready_.empty()) return MF_E_NOTACCEPTING;
    input.force_key = std::exchange(force_key_, false);
    if (async()) pending_.push_back(std::move(input));
  }
  if (async()) {
    changed_.notify_all();
  } else {
    Encode(input);
  }
  return S_OK;
}

// Number of samples that this made ready.
std::size_t EncoderTransform::Encode(const Input& input) {
  EncodedFrame frame = engine_->encode(input.nv12.data(), input.force_key);
  const std::lock_guard guard(lock_);
  ready_.push_back({std::move(frame), input.time, input.duration});
  if (released_) return 1;
  released_ = ready_.size() > static_cast<std::size_t>(codec_board().buffered_frames);
  return released_ ? ready_.size() : 0;
}

// The asynchronous transform's own thread.
void EncoderTransform::Work() {
  std::unique_lock guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return stopping_ || !pending_.empty(); });
    if (stopping_) return;
    const Input input = std::move(pending_.front());
    pending_.pop_front();
    guard.unlock();
    const std::size_t outputs = Encode(input);
    guard.lock();
    // The board is no condition variable's business, so silence is looked at every few milliseconds.
    while (codec_board().silent != 0 && !stopping_) {
      codec_board().withheld = 1;
      changed_.wait_for(guard, kSilenceStep);
    }
    codec_board().withheld = 0;
    for (std::size_t i = 0; i < outputs; ++i)
      Tell(METransformHaveOutput);
    Tell(METransformNeedInput);
  }
}

HRESULT EncoderTransform::ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* output, DWORD* status) {
  if (locked()) return MF_E_TRANSFORM_ASYNC_LOCKED;
  if (count != 1) return E_INVALIDARG;
  *status = 0;
  Output next;
  {
    const std::lock_guard guard(lock_);
    if (!released_ || ready_.empty()) return MF_E_TRANSFORM_NEED_MORE_INPUT;
    next = std::move(ready_.front());
    ready_.pop_front();
  }
  if (codec_board().process_output_result != 0) return codec_board().process_output_result;
  ++codec_board().outputs;
  return Deliver(next, *output);
}

HRESULT EncoderTransform::Deliver(const Output& output, MFT_OUTPUT_DATA_BUFFER& target) const {
  const auto size = static_cast<DWORD>(output.frame.bytes.size());
  if (codec_board().sample_flags != 0) {
    target.pSample = nullptr;
    if (codec_board().null_sample != 0) return S_OK;
    MFCreateSample(&target.pSample);
    if (codec_board().empty_sample != 0) return S_OK;
    ComPtr<IMFMediaBuffer> own;
    MFCreateMemoryBuffer(size, own.GetAddressOf());
    target.pSample->AddBuffer(own.Get());
  }
  if (target.pSample == nullptr) return E_INVALIDARG;
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD room = 0;
  HRESULT result = target.pSample->GetBufferByIndex(0, buffer.GetAddressOf());
  if (FAILED(result) || FAILED(result = buffer->Lock(&bytes, &room, nullptr))) return result;
  if (size <= room) std::memcpy(bytes, output.frame.bytes.data(), size);
  buffer->Unlock();
  if (size > room) return MF_E_BUFFERTOOSMALL;
  buffer->SetCurrentLength(size);
  target.pSample->SetSampleTime(output.time);
  target.pSample->SetSampleDuration(output.duration);
  if (output.frame.key) target.pSample->SetUINT32(MFSampleExtension_CleanPoint, 1);
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

}  // namespace

CodecBoard& codec_board() {
  static CodecBoard& board = map_board(kCodecBoardVariable, own_board);
  return board;
}

HRESULT make_transform(Transform kind, REFIID iid, void** result) {
  ComPtr<IMFTransform> transform;
  // Attach of the toolchain's ComPtr wrongly adds a reference.
  *transform.ReleaseAndGetAddressOf() = new EncoderTransform(kind);
  return transform.CopyTo(iid, result);
}

}  // namespace vantelink_doubles
