// A scripted Media Foundation: a search that finds what a test says, and an encoder that notes every call,
// fails where a test says so and puts out the samples that it is given. Samples, buffers and media types are
// the system's own. Included by one file of a program; it takes the place of the system's functions there.
#pragma once

#include <windows.h>
// The toolchain's codecapi.h needs strmif.h before it.
#include <strmif.h>
// Ends a block, so that the order stays.
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/doubles/h264/unsupported.h"
#include "tests/doubles/method_table.h"
#include "tests/windows/support/seam.h"

#include <codecapi.h>
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <wrl/client.h>

namespace vlk::test::mf {

using Microsoft::WRL::ComPtr;

constexpr UINT32 kHardwareSearch = 0x44, kSoftwareSearch = 0x41;

// What ProcessOutput gives.
struct Output {
  std::string bytes;
  UINT32 clean_point = 0;
  bool has_clean_point = false;  // false: the sample says nothing
  int buffers = 1;               // the bytes go into the first, another byte into each further one
};

inline Output plain(const std::string& bytes) {
  return {bytes, 0, false, 1};
}

inline Output key(const std::string& bytes) {
  return {bytes, 1, true, 1};
}

struct Input {
  std::string bytes;
  LONGLONG time = 0, duration = 0;
};

// What the machine is, and what was done to it.
struct Machine {
  bool hardware = false, software = true;  // what the searches find
  bool hardware_async = true;              // the hardware encoder's protocol; the software one's is plain
  bool has_events = true, has_codec_api = true, has_attributes = true;
  DWORD stream_flags = 0, buffer_size = 4096;  // of GetOutputStreamInfo
  std::string header = "<sets>";               // sequence header; empty: none
  bool null_sample = false;
  bool memory_short = false;                // samples and types cannot be made
  DWORD largest_buffer = 64u << 20;         // bytes; larger ones cannot be made
  std::map<std::string, HRESULT> failures;  // by call
  int fail_at = 0;  // the call with that number, from 1 on, fails with E_FAIL; 0: none
  int fallible_calls = 0;
  std::function<void(Machine&)> on_input;  // after each input that was taken

  std::deque<Output> outputs;
  std::deque<MediaEventType> events;  // GetEvent fails when none is left, where a real one would wait

  int live = 0;      // encoders and activation objects not yet released for good
  int startups = 0;  // MFStartup calls that are not matched yet
  std::vector<std::string> calls;
  std::vector<Input> inputs;
  std::vector<DWORD> output_rooms;  // of the caller's samples; 0 where it brought none
  ComPtr<IMFMediaType> output_type, input_type;
  ComPtr<IMFAttributes> encoder_attributes;

  HRESULT Step(const std::string& name, const std::string& details = {}) {
    calls.push_back(details.empty() ? name : name + ' ' + details);
    if (++fallible_calls == fail_at) return E_FAIL;
    const auto failure = failures.find(name);
    return failure == failures.end() ? S_OK : failure->second;
  }
  int Count(const std::string& call) const {
    int count = 0;
    for (const auto& each : calls)
      count += each == call ? 1 : 0;
    return count;
  }
};
inline Machine machine;

inline std::string hex(std::uint64_t number) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(number));
  return text;
}

inline std::string bytes_of(IMFSample* sample) {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  if (sample == nullptr || FAILED(sample->ConvertToContiguousBuffer(buffer.GetAddressOf()))) return {};
  if (FAILED(buffer->Lock(&bytes, nullptr, &length))) return {};
  const std::string copy(reinterpret_cast<const char*>(bytes), length);
  buffer->Unlock();
  return copy;
}

// Fills the caller's sample, or a new one.
inline HRESULT fill(const Output& output, ComPtr<IMFSample>& sample) {
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
    DWORD room = 0;
    if (FAILED(sample->GetBufferByIndex(0, buffer.GetAddressOf()))) return E_INVALIDARG;
    if (FAILED(buffer->Lock(&bytes, &room, nullptr))) return E_INVALIDARG;
    const bool fits = output.bytes.size() <= room;
    if (fits) output.bytes.copy(reinterpret_cast<char*>(bytes), output.bytes.size());
    buffer->Unlock();
    if (!fits) return MF_E_BUFFERTOOSMALL;
    buffer->SetCurrentLength(static_cast<DWORD>(output.bytes.size()));
  }
  if (output.has_clean_point) sample->SetUINT32(MFSampleExtension_CleanPoint, output.clean_point);
  return S_OK;
}

class Encoder final : public vantelink_doubles::UnsupportedTransform,
                      public vantelink_doubles::UnsupportedCodecApi,
                      public IMFMediaEventGenerator {
 public:
  explicit Encoder(bool async) : async_(async) {
    ++machine.live;
    MFCreateAttributes(attributes_.GetAddressOf(), 2);
    if (async_) attributes_->SetUINT32(MF_TRANSFORM_ASYNC, 1);
    machine.encoder_attributes = attributes_;
  }

  STDMETHODIMP QueryInterface(REFIID iid, void** result) override {
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
  STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
  STDMETHODIMP_(ULONG) Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  STDMETHODIMP GetAttributes(IMFAttributes** attributes) override {
    *attributes = nullptr;
    return machine.has_attributes ? attributes_.CopyTo(attributes) : E_NOTIMPL;
  }
  STDMETHODIMP SetOutputType(DWORD stream, IMFMediaType* type, DWORD flags) override {
    const HRESULT result =
        machine.Step("SetOutputType", std::to_string(stream) + ' ' + std::to_string(flags));
    if (SUCCEEDED(result)) machine.output_type = type;
    return result;
  }
  STDMETHODIMP SetInputType(DWORD stream, IMFMediaType* type, DWORD flags) override {
    const HRESULT result = machine.Step("SetInputType", std::to_string(stream) + ' ' + std::to_string(flags));
    if (SUCCEEDED(result)) machine.input_type = type;
    return result;
  }
  STDMETHODIMP GetOutputStreamInfo(DWORD, MFT_OUTPUT_STREAM_INFO* info) override {
    if (const HRESULT result = machine.Step("GetOutputStreamInfo"); FAILED(result)) return result;
    *info = {machine.stream_flags, machine.buffer_size, 0};
    return S_OK;
  }
  STDMETHODIMP ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR parameter) override {
    return machine.Step("ProcessMessage", hex(static_cast<UINT32>(message)) + ' ' + hex(parameter));
  }
  STDMETHODIMP GetOutputCurrentType(DWORD, IMFMediaType** type) override {
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
  STDMETHODIMP ProcessInput(DWORD stream, IMFSample* sample, DWORD flags) override {
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
  STDMETHODIMP ProcessOutput(DWORD flags, DWORD count, MFT_OUTPUT_DATA_BUFFER* buffer,
                             DWORD* status) override {
    *status = 0;
    const HRESULT result = machine.Step("ProcessOutput", std::to_string(flags) + ' ' + std::to_string(count) +
                                                             ' ' + std::to_string(buffer->dwStreamID));
    if (FAILED(result)) return result;
    if (machine.outputs.empty()) return MF_E_TRANSFORM_NEED_MORE_INPUT;
    const Output output = machine.outputs.front();
    machine.outputs.pop_front();
    NoteRoom(buffer->pSample);
    if (machine.null_sample) return S_OK;
    ComPtr<IMFSample> sample(buffer->pSample);
    const HRESULT filled = fill(output, sample);
    if (buffer->pSample == nullptr) buffer->pSample = sample.Detach();
    return filled;
  }

  STDMETHODIMP SetValue(const GUID* key, VARIANT* value) override {
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

  STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override {
    *event = nullptr;
    if (const HRESULT result = machine.Step("GetEvent", std::to_string(flags)); FAILED(result)) return result;
    if (machine.events.empty()) return MF_E_NO_EVENTS_AVAILABLE;
    const MediaEventType type = machine.events.front();
    machine.events.pop_front();
    return MFCreateMediaEvent(type, GUID_NULL, S_OK, nullptr, event);
  }
  STDMETHODIMP BeginGetEvent(IMFAsyncCallback*, IUnknown*) override { return E_NOTIMPL; }
  STDMETHODIMP EndGetEvent(IMFAsyncResult*, IMFMediaEvent**) override { return E_NOTIMPL; }
  STDMETHODIMP QueueEvent(MediaEventType, REFGUID, HRESULT, const PROPVARIANT*) override { return E_NOTIMPL; }

 private:
  ~Encoder() override { --machine.live; }

  static void NoteRoom(IMFSample* sample) {
    ComPtr<IMFMediaBuffer> buffer;
    DWORD room = 0;
    if (sample != nullptr && SUCCEEDED(sample->GetBufferByIndex(0, buffer.GetAddressOf())))
      buffer->GetMaxLength(&room);
    machine.output_rooms.push_back(room);
  }

  const bool async_;
  ULONG references_ = 1;
  ComPtr<IMFAttributes> attributes_;
};

// An activation object. Only IUnknown and ActivateObject are ever called, so it is a table of methods and not
// a class with thirty others.
struct Activation {
  static constexpr std::size_t kActivateObject = 33;  // after IUnknown's and IMFAttributes' methods

  void** methods = Methods();
  UINT32 search = 0;
  ULONG references = 1;

  static IMFActivate* Make(UINT32 search) {
    ++machine.live;
    auto* const made = new Activation;
    made->search = search;
    return reinterpret_cast<IMFActivate*>(made);
  }

 private:
  static void** Methods() {
    static vantelink_doubles::MethodTable table(query, add_ref, release);
    return table.Set(kActivateObject, activate).get();
  }
  static HRESULT STDMETHODCALLTYPE query(Activation*, REFIID, void**) { return E_NOINTERFACE; }
  static ULONG STDMETHODCALLTYPE add_ref(Activation* self) { return ++self->references; }
  static ULONG STDMETHODCALLTYPE release(Activation* self) {
    const ULONG left = --self->references;
    if (left != 0) return left;
    --machine.live;
    delete self;
    return 0;
  }
  static HRESULT STDMETHODCALLTYPE activate(Activation* self, REFIID iid, void** result) {
    *result = nullptr;
    const bool hardware = self->search == kHardwareSearch;
    const std::string name = hardware ? "ActivateObject(hardware)" : "ActivateObject(software)";
    if (const HRESULT failure = machine.Step(name); FAILED(failure)) return failure;
    ComPtr<IMFTransform> encoder;
    // Attach of the toolchain's ComPtr wrongly adds a reference.
    *encoder.ReleaseAndGetAddressOf() = new Encoder(hardware && machine.hardware_async);
    return encoder.CopyTo(iid, result);
  }
};

}  // namespace vlk::test::mf

// The functions below stand in for the system's.
extern "C" {

HRESULT WINAPI MFTEnumEx(GUID category, UINT32 flags, const MFT_REGISTER_TYPE_INFO* input,
                         const MFT_REGISTER_TYPE_INFO* output, IMFActivate*** found, UINT32* count) {
  using namespace vlk::test::mf;
  const bool as_wanted =
      category == MFT_CATEGORY_VIDEO_ENCODER && input->guidMajorType == MFMediaType_Video &&
      input->guidSubtype == MFVideoFormat_NV12 && output->guidMajorType == MFMediaType_Video &&
      output->guidSubtype == MFVideoFormat_H264;
  const HRESULT result = machine.Step("MFTEnumEx", hex(flags) + (as_wanted ? "" : " for something else"));
  if (FAILED(result)) return result;  // and leaves the results as they were
  const bool any = flags == kHardwareSearch ? machine.hardware : machine.software;
  *count = any ? 2 : 0;
  *found = static_cast<IMFActivate**>(CoTaskMemAlloc(2 * sizeof(IMFActivate*)));
  for (UINT32 i = 0; i < *count; ++i)
    (*found)[i] = Activation::Make(flags);
  return S_OK;
}

HRESULT WINAPI MFStartup(ULONG version, DWORD flags) {
  using namespace vlk::test::mf;
  static auto* const system = vlk::test::real<decltype(MFStartup)>("mfplat.dll", "MFStartup");
  const HRESULT result = machine.Step("MFStartup", hex(version) + ' ' + std::to_string(flags));
  if (FAILED(result)) return result;
  ++machine.startups;
  return system(version, flags);
}

HRESULT WINAPI MFCreateMediaType(IMFMediaType** type) {
  static auto* const system = vlk::test::real<decltype(MFCreateMediaType)>("mfplat.dll", "MFCreateMediaType");
  return vlk::test::mf::machine.memory_short ? E_OUTOFMEMORY : system(type);
}

HRESULT WINAPI MFCreateSample(IMFSample** sample) {
  static auto* const system = vlk::test::real<decltype(MFCreateSample)>("mfplat.dll", "MFCreateSample");
  return vlk::test::mf::machine.memory_short ? E_OUTOFMEMORY : system(sample);
}

HRESULT WINAPI MFCreateMemoryBuffer(DWORD size, IMFMediaBuffer** buffer) {
  static auto* const system =
      vlk::test::real<decltype(MFCreateMemoryBuffer)>("mfplat.dll", "MFCreateMemoryBuffer");
  return size > vlk::test::mf::machine.largest_buffer ? E_OUTOFMEMORY : system(size, buffer);
}

HRESULT WINAPI MFShutdown() {
  using namespace vlk::test::mf;
  static auto* const system = vlk::test::real<decltype(MFShutdown)>("mfplat.dll", "MFShutdown");
  machine.calls.push_back("MFShutdown");
  --machine.startups;
  return system();
}

}  // extern "C"
