// The scripted encoder's COM interfaces, each call recorded.
#include "tests/windows/stream/encode/session/scripted_encoder.h"

#include <mfapi.h>
#include <mferror.h>
#include <codecapi.h>

#include <utility>

namespace vlk::test::mf {
namespace {

std::string bytes_of(IMFSample* sample) {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  if (sample == nullptr || FAILED(sample->ConvertToContiguousBuffer(buffer.GetAddressOf()))) return {};
  if (FAILED(buffer->Lock(&bytes, nullptr, &length))) return {};
  const std::string copy(reinterpret_cast<const char*>(bytes), length);
  buffer->Unlock();
  return copy;
}

// Puts the output into the caller's sample, or into a new one if there is none.
HRESULT fill(const Output& output, ComPtr<IMFSample>& sample) {
  if (!sample) {
    MFCreateSample(sample.GetAddressOf());
    for (int i = 0; i < output.buffers; ++i) {
      ComPtr<IMFMediaBuffer> buffer;
      MFCreateMemoryBuffer(static_cast<DWORD>(output.bytes.size() + 1), buffer.GetAddressOf());
      buffer->SetCurrentLength(1);
      sample->AddBuffer(buffer.Get());
    }
  }
  ComPtr<IMFMediaBuffer> buffer;
  if (output.buffers > 0) {
    BYTE* bytes = nullptr;
    DWORD capacity = 0;
    if (FAILED(sample->GetBufferByIndex(0, buffer.GetAddressOf()))) return E_INVALIDARG;
    if (FAILED(buffer->Lock(&bytes, &capacity, nullptr))) return E_INVALIDARG;
    const bool fits = output.bytes.size() <= capacity;
    if (fits) output.bytes.copy(reinterpret_cast<char*>(bytes), output.bytes.size());
    buffer->Unlock();
    if (!fits) return MF_E_BUFFERTOOSMALL;
    buffer->SetCurrentLength(static_cast<DWORD>(output.bytes.size()));
  }
  if (output.has_clean_point) sample->SetUINT32(MFSampleExtension_CleanPoint, output.clean_point);
  return S_OK;
}

// Records the capacity of the caller's sample.
void note_capacity(IMFSample* sample) {
  ComPtr<IMFMediaBuffer> buffer;
  DWORD capacity = 0;
  if (sample != nullptr && SUCCEEDED(sample->GetBufferByIndex(0, buffer.GetAddressOf())))
    buffer->GetMaxLength(&capacity);
  machine.output_capacities.push_back(capacity);
}

}  // namespace

Encoder::Encoder(bool async) : async_(async) {
  ++machine.live;
  MFCreateAttributes(attributes_.GetAddressOf(), 2);
  if (async_) attributes_->SetUINT32(MF_TRANSFORM_ASYNC, 1);
  machine.encoder_attributes = attributes_;
}

HRESULT STDMETHODCALLTYPE Encoder::QueryInterface(REFIID iid, void** result) {
  *result = nullptr;
  if (iid == IID_IUnknown || iid == IID_IMFTransform) {
    *result = static_cast<IMFTransform*>(this);
  } else if (iid == IID_ICodecAPI && machine.has_codec_api) {
    *result = static_cast<ICodecAPI*>(this);
  } else if (iid == IID_IMFMediaEventGenerator && machine.has_events) {
    *result = static_cast<IMFMediaEventGenerator*>(this);
  }
  if (*result == nullptr) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

ULONG STDMETHODCALLTYPE Encoder::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

HRESULT STDMETHODCALLTYPE Encoder::GetAttributes(IMFAttributes** attributes) {
  *attributes = nullptr;
  return machine.has_attributes ? attributes_.CopyTo(attributes) : E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Encoder::SetOutputType(DWORD stream, IMFMediaType* type, DWORD flags) {
  const HRESULT result = machine.Step("SetOutputType", std::to_string(stream) + ' ' + std::to_string(flags));
  if (SUCCEEDED(result)) machine.output_type = type;
  return result;
}

HRESULT STDMETHODCALLTYPE Encoder::SetInputType(DWORD stream, IMFMediaType* type, DWORD flags) {
  const HRESULT result = machine.Step("SetInputType", std::to_string(stream) + ' ' + std::to_string(flags));
  if (SUCCEEDED(result)) machine.input_type = type;
  return result;
}

HRESULT STDMETHODCALLTYPE Encoder::GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) {
  if (const HRESULT result = machine.Step("GetOutputStreamInfo"); FAILED(result)) return result;
  *info = {machine.stream_flags, machine.buffer_size, 0};
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Encoder::ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR parameter) {
  return machine.Step("ProcessMessage", hex(static_cast<UINT32>(message)) + ' ' + hex(parameter));
}

HRESULT STDMETHODCALLTYPE Encoder::GetOutputCurrentType(DWORD, IMFMediaType** type) {
  *type = nullptr;
  if (const HRESULT result = machine.Step("GetOutputCurrentType"); FAILED(result)) return result;
  ComPtr<IMFMediaType> current;
  if (FAILED(MFCreateMediaType(current.GetAddressOf()))) return E_OUTOFMEMORY;
  if (!machine.header.empty()) {
    current->SetBlob(MF_MT_MPEG_SEQUENCE_HEADER, reinterpret_cast<const UINT8*>(machine.header.data()),
                     static_cast<UINT32>(machine.header.size()));
  }
  return current.CopyTo(type);
}

HRESULT STDMETHODCALLTYPE Encoder::ProcessInput(DWORD stream, IMFSample* sample, DWORD flags) {
  const HRESULT result = machine.Step("ProcessInput", std::to_string(stream) + ' ' + std::to_string(flags));
  if (FAILED(result)) return result;
  if (sample == nullptr) return E_POINTER;
  Input input;
  input.bytes = bytes_of(sample);
  sample->GetSampleTime(&input.time);
  sample->GetSampleDuration(&input.duration);
  machine.inputs.push_back(input);
  if (machine.on_input) machine.on_input(machine);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Encoder::ProcessOutput(DWORD flags, DWORD count, MFT_OUTPUT_DATA_BUFFER* buffer,
                                                 DWORD* status) {
  *status = 0;
  const HRESULT result = machine.Step("ProcessOutput", std::to_string(flags) + ' ' + std::to_string(count) +
                                                           ' ' + std::to_string(buffer->dwStreamID));
  if (FAILED(result)) return result;
  if (machine.outputs.empty()) return MF_E_TRANSFORM_NEED_MORE_INPUT;
  const Output output = machine.outputs.front();
  machine.outputs.pop_front();
  note_capacity(buffer->pSample);
  if (machine.null_sample) return S_OK;
  ComPtr<IMFSample> sample(buffer->pSample);
  const HRESULT filled = fill(output, sample);
  if (buffer->pSample == nullptr) buffer->pSample = sample.Detach();
  return filled;
}

HRESULT STDMETHODCALLTYPE Encoder::SetValue(const GUID* key, VARIANT* value) {
  const std::pair<GUID, const char*> names[] = {{CODECAPI_AVEncCommonRateControlMode, "RateControlMode"},
                                                {CODECAPI_AVEncCommonMeanBitRate, "MeanBitRate"},
                                                {CODECAPI_AVLowLatencyMode, "LowLatencyMode"},
                                                {CODECAPI_AVEncCommonQualityVsSpeed, "QualityVsSpeed"},
                                                {CODECAPI_AVEncVideoForceKeyFrame, "ForceKeyFrame"}};
  for (const auto& [guid, name] : names) {
    if (*key != guid) continue;
    return machine.Step(
        "SetValue", std::string(name) + (value->vt == VT_UI4    ? " u32 " + std::to_string(value->ulVal)
                                         : value->vt == VT_BOOL ? " bool " + std::to_string(value->boolVal)
                                                                : " of another type"));
  }
  return machine.Step("SetValue", "of something else");
}

HRESULT STDMETHODCALLTYPE Encoder::GetEvent(DWORD flags, IMFMediaEvent** event) {
  *event = nullptr;
  if (const HRESULT result = machine.Step("GetEvent", std::to_string(flags)); FAILED(result)) return result;
  if (machine.events.empty()) return MF_E_NO_EVENTS_AVAILABLE;
  const MediaEventType type = machine.events.front();
  machine.events.pop_front();
  return MFCreateMediaEvent(type, GUID_NULL, S_OK, nullptr, event);
}

Encoder::~Encoder() {
  --machine.live;
}

}  // namespace vlk::test::mf
