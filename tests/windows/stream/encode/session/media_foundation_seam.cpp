// The replaced calls of Media Foundation: start, end and the search for encoders.
#include "tests/windows/stream/encode/session/media_foundation_seam.h"

#include <mfapi.h>
#include <mftransform.h>

#include <cstdio>

#include "stream/encode/media_foundation_win32.h"
#include "tests/doubles/method_table.h"
#include "tests/windows/stream/encode/session/scripted_encoder.h"
#include "tests/windows/support/seam.h"

namespace vlk::test::mf {

Machine machine;

Output plain(const std::string& bytes) {
  return {bytes, 0, false, 1};
}

Output key(const std::string& bytes) {
  return {bytes, 1, true, 1};
}

HRESULT Machine::Step(const std::string& name, const std::string& details) {
  calls.push_back(details.empty() ? name : name + ' ' + details);
  if (nth_failure != nullptr && nth_failure->fails()) return E_FAIL;
  const auto failure = failures.find(name);
  return failure == failures.end() ? S_OK : failure->second;
}

int Machine::Count(const std::string& call) const {
  int count = 0;
  for (const auto& each : calls)
    count += each == call ? 1 : 0;
  return count;
}

std::string hex(std::uint64_t number) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(number));
  return text;
}

namespace {

// An activation object. Its method table has only the methods of IUnknown and ActivateObject, because no
// other method is called.
struct Activation {
  static constexpr std::size_t kActivateObject = 33;  // follows the methods of IUnknown and IMFAttributes

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
    // The ComPtr's Attach is not used, because the toolchain's version wrongly adds a reference.
    *encoder.ReleaseAndGetAddressOf() = new Encoder(hardware && machine.hardware_async);
    return encoder.CopyTo(iid, result);
  }
};

}  // namespace
}  // namespace vlk::test::mf

extern "C" {

HRESULT WINAPI MFTEnumEx(GUID category, UINT32 flags, const MFT_REGISTER_TYPE_INFO* input,
                         const MFT_REGISTER_TYPE_INFO* output, IMFActivate*** found, UINT32* count) {
  using namespace vlk::test::mf;
  const bool as_wanted =
      category == MFT_CATEGORY_VIDEO_ENCODER && input->guidMajorType == MFMediaType_Video &&
      input->guidSubtype == MFVideoFormat_NV12 && output->guidMajorType == MFMediaType_Video &&
      output->guidSubtype == MFVideoFormat_H264;
  const HRESULT result = machine.Step("MFTEnumEx", hex(flags) + (as_wanted ? "" : " for something else"));
  if (FAILED(result)) return result;  // a failed search leaves the results unchanged
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

namespace vlk::agent {

const MediaFoundation& media_foundation() {
  static constexpr MediaFoundation kScripted = {MFStartup,         MFShutdown,     MFTEnumEx,
                                                MFCreateMediaType, MFCreateSample, MFCreateMemoryBuffer};
  return kScripted;
}

}  // namespace vlk::agent
