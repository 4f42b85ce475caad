// H.264 on Windows: a session with an encoder of Media Foundation, hardware before software. Supports both
// protocols: the synchronous one, where each call returns its result, and the asynchronous one, where the
// encoder works on its own threads and reports by events when it needs input or has output.
#include "stream/encode/h264_encoder.h"

#include <mferror.h>

#include "stream/encode/colour.h"
#include "stream/encode/h264_sample_win32.h"
#include "stream/encode/h264_transform_win32.h"
#include "stream/encode/media_foundation_win32.h"

namespace vlk::agent {
namespace {

constexpr ULONG kMfVersion = 0x20070;
constexpr UINT32 kHardwareSearch = MFT_ENUM_FLAG_HARDWARE | MFT_ENUM_FLAG_SORTANDFILTER;
constexpr UINT32 kSoftwareSearch = MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_SORTANDFILTER;
constexpr DWORD kStream = 0;  // identifier of the transform's input stream and of its output stream
constexpr DWORD kOwnSamples = MFT_OUTPUT_STREAM_PROVIDES_SAMPLES | MFT_OUTPUT_STREAM_CAN_PROVIDE_SAMPLES;

}  // namespace

struct H264Encoder::State {
  bool mf_started = false;
  ComPtr<IMFTransform> transform;         // null if no session is open
  ComPtr<IMFMediaEventGenerator> events;  // null for a synchronous encoder
  ComPtr<ICodecAPI> codec_api;            // null if the encoder has no settings to change
  bool async = false;                     // set once and never cleared, even by a later session
  bool provides_samples = false;          // the encoder allocates the output samples
  std::int32_t width = 0, height = 0;     // pixels
  std::int32_t fps = kDefaultH264Fps;     // frames per second
  std::uint64_t frame_index = 0;          // counts the frames of all sessions, so that times keep increasing
  std::vector<std::uint8_t> sequence_header;  // kept from an earlier session if the present one has none
  std::vector<std::uint8_t> nv12;

  bool FindEncoder(bool& is_hardware);
  void DetectProtocol();
  bool SetTypes(const H264Format& format);
  void Begin(std::int32_t bitrate);
  void Convert(const CapturedFrame& frame);
  ComPtr<IMFSample> NextInput();
  bool EncodeSync(IMFSample* sample, std::vector<std::uint8_t>& out);
  bool EncodeAsync(IMFSample* sample, std::vector<std::uint8_t>& out);
  bool NextEvent(MediaEventType& type);
  bool DrainOutput(std::vector<std::uint8_t>& out);
};

bool H264Encoder::State::FindEncoder(bool& is_hardware) {
  if (ActivateEncoder(kHardwareSearch, transform)) {
    is_hardware = true;
    return true;
  }
  is_hardware = false;
  if (ActivateEncoder(kSoftwareSearch, transform)) return true;
  LogEncoder("no H.264 encoder MFT found", 0);
  return false;
}

void H264Encoder::State::DetectProtocol() {
  ComPtr<IMFAttributes> attributes;
  UINT32 value = 0;
  if (FAILED(transform->GetAttributes(attributes.ReleaseAndGetAddressOf())) || !attributes) return;
  if (FAILED(attributes->GetUINT32(MF_TRANSFORM_ASYNC, &value)) || value == 0) return;
  async = true;
  attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);
  transform->QueryInterface(IID_IMFMediaEventGenerator,
                            reinterpret_cast<void**>(events.ReleaseAndGetAddressOf()));
}

// The output type is set first, because encoders need it before the input type.
bool H264Encoder::State::SetTypes(const H264Format& format) {
  HRESULT result = transform->SetOutputType(kStream, MakeOutputType(format).Get(), 0);
  if (FAILED(result)) {
    LogEncoder("SetOutputType failed", result);
    return false;
  }
  result = transform->SetInputType(kStream, MakeInputType(format).Get(), 0);
  if (FAILED(result)) {
    LogEncoder("SetInputType failed", result);
    return false;
  }
  return true;
}

void H264Encoder::State::Begin(std::int32_t bitrate) {
  transform->QueryInterface(IID_ICodecAPI, reinterpret_cast<void**>(codec_api.ReleaseAndGetAddressOf()));
  if (codec_api) TuneEncoder(*codec_api.Get(), bitrate);
  MFT_OUTPUT_STREAM_INFO info = {};
  transform->GetOutputStreamInfo(kStream, &info);
  provides_samples = (info.dwFlags & kOwnSamples) != 0;
  for (const MFT_MESSAGE_TYPE message :
       {MFT_MESSAGE_COMMAND_FLUSH, MFT_MESSAGE_NOTIFY_BEGIN_STREAMING, MFT_MESSAGE_NOTIFY_START_OF_STREAM})
    transform->ProcessMessage(message, 0);
  ReadSequenceHeader(*transform.Get(), sequence_header);
}

// Uses the session's size, not the frame's: the caller opens a new session for a frame of another size.
void H264Encoder::State::Convert(const CapturedFrame& frame) {
  nv12.resize(Nv12Capacity(width, height));
  const std::size_t luma_size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  ConvertBgraToNv12(frame.pixels.data(), width, height, frame.stride, nv12.data(), nv12.data() + luma_size);
}

// Sample times count frames at the nominal rate: the real time and skipped frames have no effect on them.
ComPtr<IMFSample> H264Encoder::State::NextInput() {
  const std::int64_t duration = FrameDuration(fps);
  const std::int64_t time = static_cast<std::int64_t>(frame_index++) * duration;
  return MakeFilledSample(nv12.data(), Nv12Size(width, height), time, duration);
}

bool H264Encoder::State::EncodeSync(IMFSample* sample, std::vector<std::uint8_t>& out) {
  const HRESULT result = transform->ProcessInput(kStream, sample, 0);
  if (FAILED(result)) {
    LogEncoder("ProcessInput(sync) failed", result);
    return false;
  }
  while (DrainOutput(out)) {
  }
  return true;
}

// Both waits have no time limit: an encoder that sends no event blocks its caller.
bool H264Encoder::State::EncodeAsync(IMFSample* sample, std::vector<std::uint8_t>& out) {
  MediaEventType type = MEUnknown;
  do {
    if (!NextEvent(type)) return false;
    if (type == METransformHaveOutput) DrainOutput(out);
  } while (type != METransformNeedInput);

  if (FAILED(transform->ProcessInput(kStream, sample, 0))) {
    LogEncoder("ProcessInput(async) failed", 0);
    return false;
  }
  // A request for more input is ignored here; the encoder sends another request after each output.
  do {
    if (!NextEvent(type)) return false;
  } while (type != METransformHaveOutput);
  DrainOutput(out);
  return true;
}

bool H264Encoder::State::NextEvent(MediaEventType& type) {
  ComPtr<IMFMediaEvent> event;
  if (!events || FAILED(events->GetEvent(0, event.ReleaseAndGetAddressOf())) || !event) return false;
  type = MEUnknown;
  event->GetType(&type);
  return true;
}

// Appends one output sample to `out`. False if there was none.
bool H264Encoder::State::DrainOutput(std::vector<std::uint8_t>& out) {
  MFT_OUTPUT_DATA_BUFFER output = {};
  output.dwStreamID = kStream;
  ComPtr<IMFSample> sample;
  if (!provides_samples) {
    MFT_OUTPUT_STREAM_INFO info = {};
    transform->GetOutputStreamInfo(kStream, &info);
    const DWORD luma_size = static_cast<DWORD>(width) * static_cast<DWORD>(height);
    sample = MakeEmptySample(info.cbSize != 0 ? info.cbSize : luma_size);
    output.pSample = sample.Get();
  }
  DWORD status = 0;
  const HRESULT result = transform->ProcessOutput(0, 1, &output, &status);
  // The pointers are assigned in this way because Attach of the toolchain's ComPtr wrongly adds a reference.
  ComPtr<IMFCollection> stream_events;
  *stream_events.ReleaseAndGetAddressOf() = output.pEvents;
  if (provides_samples) *sample.ReleaseAndGetAddressOf() = output.pSample;

  if (result == MF_E_TRANSFORM_NEED_MORE_INPUT) return false;
  if (FAILED(result)) {
    LogEncoder("ProcessOutput failed", result);
    return false;
  }
  if (!sample) return false;
  AppendSample(*sample.Get(), sequence_header, out);
  return true;
}

H264Encoder::H264Encoder() : state_(std::make_unique<State>()) {}

H264Encoder::~H264Encoder() {
  Shutdown();
}

// A failed Init deliberately leaves a partial state: the next Init replaces it, or the destructor releases
// it.
bool H264Encoder::Init(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate) {
  worker_thread_.check();
  if (FAILED(media_foundation().Startup(kMfVersion, MFSTARTUP_LITE))) {
    LogEncoder("MFStartup failed", 0);
    return false;
  }
  const H264Format format = MakeH264Format(width, height, fps, bitrate);
  state_->mf_started = true;
  state_->width = format.width;
  state_->height = format.height;
  state_->fps = format.fps;
  if (!state_->FindEncoder(hardware)) return false;
  state_->DetectProtocol();
  if (!state_->SetTypes(format)) return false;
  state_->Begin(format.bitrate);
  LogEncoder(hardware ? "H.264 hardware encoder ready" : "H.264 software encoder ready", 0);
  return true;
}

bool H264Encoder::Encode(const CapturedFrame& frame, std::vector<std::uint8_t>& out, bool force_keyframe) {
  worker_thread_.check();
  if (!state_->transform || frame.pixels.empty()) return false;
  state_->Convert(frame);
  if (force_keyframe && state_->codec_api) RequestKeyFrame(*state_->codec_api.Get());
  const ComPtr<IMFSample> sample = state_->NextInput();
  return state_->async ? state_->EncodeAsync(sample.Get(), out) : state_->EncodeSync(sample.Get(), out);
}

// Frames that are still in the encoder are discarded: viewers no longer need them.
void H264Encoder::Shutdown() {
  worker_thread_.check();
  if (state_->transform) {
    state_->transform->ProcessMessage(MFT_MESSAGE_NOTIFY_END_OF_STREAM, 0);
    state_->transform->ProcessMessage(MFT_MESSAGE_NOTIFY_END_STREAMING, 0);
    state_->transform.Reset();
  }
  state_->events.Reset();
  state_->codec_api.Reset();
  if (!state_->mf_started) return;
  media_foundation().Shutdown();
  state_->mf_started = false;
}

}  // namespace vlk::agent
