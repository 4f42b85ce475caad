// Registers the transforms with the system: `regsvr32 /n /i:"sync async" h264.dll` registers the named
// transforms as COM classes and as video encoders, and unregisters the others. It also unregisters the H.264
// encoder of the system, which a search would otherwise find before the transforms.
#include <windows.h>
#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>

#include <cwchar>
#include <string>

#include "tests/doubles/h264/event_counts.h"
#include "tests/doubles/h264/transform.h"

namespace vantelink_doubles {

// {6E2D3C1A-8B54-4F0E-9A61-1B7C5D2E9F01} and {...02}
const GUID kTransformClasses[kTransforms] = {
    {0x6E2D3C1A, 0x8B54, 0x4F0E, {0x9A, 0x61, 0x1B, 0x7C, 0x5D, 0x2E, 0x9F, 0x01}},
    {0x6E2D3C1A, 0x8B54, 0x4F0E, {0x9A, 0x61, 0x1B, 0x7C, 0x5D, 0x2E, 0x9F, 0x02}}};

namespace {

// The class of the H.264 encoder of Windows, which Wine implements since version 9.
constexpr GUID kSystemEncoder = {
    0x6CA50344, 0x051A, 0x4DED, {0x97, 0x79, 0xA4, 0x33, 0x05, 0x16, 0x5E, 0x35}};

constexpr const wchar_t* kNames[kTransforms] = {L"sync", L"async"};
constexpr UINT32 kFlags[kTransforms] = {MFT_ENUM_FLAG_SYNCMFT,
                                        MFT_ENUM_FLAG_ASYNCMFT | MFT_ENUM_FLAG_HARDWARE};

HMODULE this_library() {
  HMODULE library = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const wchar_t*>(&kTransformClasses), &library);
  return library;
}

std::wstring class_key(int kind) {
  wchar_t text[40] = {};
  StringFromGUID2(kTransformClasses[kind], text, 40);
  return std::wstring(L"Software\\Classes\\CLSID\\") + text;
}

void set_text(const std::wstring& key, const wchar_t* name, const wchar_t* text) {
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text,
                  static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(wchar_t)));
}

HRESULT add(int kind) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(this_library(), path, MAX_PATH);
  const std::wstring key = class_key(kind) + L"\\InprocServer32";
  set_text(key, nullptr, path);
  set_text(key, L"ThreadingModel", L"Both");
  MFT_REGISTER_TYPE_INFO input = {MFMediaType_Video, MFVideoFormat_NV12};
  MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video, MFVideoFormat_H264};
  std::wstring name = std::wstring(L"H.264 double, ") + kNames[kind];
  return MFTRegister(kTransformClasses[kind], MFT_CATEGORY_VIDEO_ENCODER, name.data(), kFlags[kind], 1,
                     &input, 1, &output, nullptr);
}

void remove(int kind) {
  MFTUnregister(kTransformClasses[kind]);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, class_key(kind).c_str());
}

// Whether the text contains the word, separated by spaces.
bool names(const wchar_t* text, const wchar_t* word) {
  return (L' ' + std::wstring(text) + L' ').find(L' ' + std::wstring(word) + L' ') != std::wstring::npos;
}

// The class factory for one kind of transform. The object exists as long as the library is loaded.
class Factory final : public IClassFactory {
 public:
  explicit Factory(Transform kind) : kind_(kind) {}

  STDMETHODIMP QueryInterface(REFIID iid, void** result) override {
    *result = nullptr;
    if (iid != IID_IUnknown && iid != IID_IClassFactory) return E_NOINTERFACE;
    *result = static_cast<IClassFactory*>(this);
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 1; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }
  STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** result) override {
    *result = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    const HRESULT wanted = codec_board().activate_result[static_cast<int>(kind_)];
    return wanted != 0 ? wanted : make_transform(kind_, iid, result);
  }
  STDMETHODIMP LockServer(BOOL) override { return S_OK; }

 private:
  const Transform kind_;
};

}  // namespace
}  // namespace vantelink_doubles

using namespace vantelink_doubles;

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID class_id, REFIID iid, void** result) {
  static Factory factories[kTransforms] = {Factory(Transform::Sync), Factory(Transform::Async)};
  for (int kind = 0; kind < kTransforms; ++kind) {
    if (class_id == kTransformClasses[kind]) return factories[kind].QueryInterface(iid, result);
  }
  *result = nullptr;
  return CLASS_E_CLASSNOTAVAILABLE;
}

// The library stays loaded, because the board's mapping and the threads are used until the process ends.
extern "C" HRESULT WINAPI DllCanUnloadNow() {
  return S_FALSE;
}

extern "C" HRESULT WINAPI DllInstall(BOOL install, const wchar_t* wanted) {
  MFTUnregister(kSystemEncoder);  // fails if it is not registered
  for (int kind = 0; kind < kTransforms; ++kind) {
    remove(kind);
    if (!install || wanted == nullptr || !names(wanted, kNames[kind])) continue;
    if (const HRESULT result = add(kind); FAILED(result)) return result;
  }
  return S_OK;
}

// For tests whose client waits for an event that will not come.
extern "C" void WINAPI ShutDownEvents() {
  shut_down_events();
}
