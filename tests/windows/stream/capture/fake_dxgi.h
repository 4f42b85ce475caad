// A scripted DXGI and Direct3D: adapters, outputs, a duplication and its textures as small COM objects that
// count their references, note every call and fail where a test says so. Included by one file of a program;
// it takes the place of the system's two entry points there.
#pragma once

#define CINTERFACE
#include <initguid.h>
// The identifiers' definitions must come before the headers' declarations.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/doubles/method_table.h"

#include <d3d11.h>
#include <dxgi1_2.h>

namespace vlk::test::dxgi {

struct Output {
  RECT area;
  bool attached;
};

struct Call {
  std::string name;
  std::vector<std::int64_t> arguments;
  bool operator==(const Call&) const = default;
};

// What the machine is, and what was done to it.
struct Machine {
  std::vector<std::vector<Output>> adapters;
  UINT width = 8, height = 4, pitch = 32;   // the desktop texture as it is mapped; pitch in bytes
  std::vector<std::uint8_t> memory;         // height rows of `pitch` bytes
  std::map<std::string, HRESULT> failures;  // by call
  int fail_at = 0;  // the call with that number, from 1 on, fails with E_FAIL; 0: none
  int fallible_calls = 0;
  bool null_resource = false;  // frames are acquired that have no resource
  int live = 0;                // objects not yet released for good
  std::vector<Call> calls;
  D3D11_TEXTURE2D_DESC staging = {};

  HRESULT Step(const std::string& name, std::vector<std::int64_t> arguments = {}) {
    calls.push_back({name, std::move(arguments)});
    if (++fallible_calls == fail_at) return E_FAIL;
    const auto failure = failures.find(name);
    return failure == failures.end() ? S_OK : failure->second;
  }
  void Note(const std::string& name, std::vector<std::int64_t> arguments = {}) {
    calls.push_back({name, std::move(arguments)});
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const Call& call : calls)
      names.push_back(call.name);
    return names;
  }
  int Count(const std::string& name) const {
    int count = 0;
    for (const Call& call : calls)
      count += call.name == name;
    return count;
  }
};

inline Machine machine;

// One layout for all objects: which interface it is lies in the table of its methods.
struct Object {
  void** methods;
  ULONG references;
  UINT adapter, output;
};

inline HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result);

inline ULONG WINAPI add_ref(Object* self) {
  return ++self->references;
}

inline ULONG WINAPI release(Object* self) {
  if (--self->references > 0) return self->references;
  --machine.live;
  delete self;
  return 0;
}

using Methods = vantelink_doubles::MethodTable;

inline Methods object_methods() {
  return {query_interface, add_ref, release};
}

inline Object* make(Methods& methods, UINT adapter = 0, UINT output = 0) {
  ++machine.live;
  return new Object{methods.get(), 1, adapter, output};
}

inline Methods& texture_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(ID3D11Texture2D, GetDesc), +[](Object*, D3D11_TEXTURE2D_DESC* desc) {
        *desc = {};
        desc->Width = machine.width;
        desc->Height = machine.height;
        desc->MipLevels = desc->ArraySize = desc->SampleDesc.Count = 1;
        desc->Format = DXGI_FORMAT_B8G8R8A8_UNORM;
        desc->BindFlags = D3D11_BIND_RENDER_TARGET;
        desc->MiscFlags = D3D11_RESOURCE_MISC_SHARED;
      });
  return methods;
}

inline Methods& resource_methods() {
  static Methods methods = object_methods();
  return methods;
}

inline Methods& duplication_methods() {
  static Methods methods = object_methods()
                               .Set(
                                   VLK_SLOT(IDXGIOutputDuplication, AcquireNextFrame),
                                   +[](Object*, UINT timeout, DXGI_OUTDUPL_FRAME_INFO*, void** resource) {
                                     const HRESULT result = machine.Step("AcquireNextFrame", {timeout});
                                     if (SUCCEEDED(result) && !machine.null_resource)
                                       *resource = make(resource_methods());
                                     return result;
                                   })
                               .Set(
                                   VLK_SLOT(IDXGIOutputDuplication, ReleaseFrame), +[](Object*) -> HRESULT {
                                     machine.Note("ReleaseFrame");
                                     return S_OK;
                                   });
  return methods;
}

inline Methods& output_methods() {
  static Methods methods =
      object_methods()
          .Set(
              VLK_SLOT(IDXGIOutput1, GetDesc),
              +[](Object* self, DXGI_OUTPUT_DESC* desc) -> HRESULT {
                const Output& output = machine.adapters[self->adapter][self->output];
                desc->DesktopCoordinates = output.area;
                desc->AttachedToDesktop = output.attached;
                return S_OK;
              })
          .Set(
              VLK_SLOT(IDXGIOutput1, DuplicateOutput), +[](Object* self, void*, void** duplication) {
                const HRESULT result = machine.Step("DuplicateOutput", {self->adapter, self->output});
                if (SUCCEEDED(result)) *duplication = make(duplication_methods());
                return result;
              });
  return methods;
}

inline Methods& adapter_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(IDXGIAdapter1, EnumOutputs), +[](Object* self, UINT index, void** output) -> HRESULT {
        *output = nullptr;
        if (index >= machine.adapters[self->adapter].size()) return DXGI_ERROR_NOT_FOUND;
        *output = make(output_methods(), self->adapter, index);
        return S_OK;
      });
  return methods;
}

inline Methods& factory_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(IDXGIFactory1, EnumAdapters1), +[](Object*, UINT index, void** adapter) -> HRESULT {
        *adapter = nullptr;
        if (index >= machine.adapters.size()) return DXGI_ERROR_NOT_FOUND;
        *adapter = make(adapter_methods(), index);
        return S_OK;
      });
  return methods;
}

inline Methods& device_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(ID3D11Device, CreateTexture2D),
      +[](Object*, const D3D11_TEXTURE2D_DESC* desc, const void* initial, void** texture) {
        const HRESULT result =
            machine.Step("CreateTexture2D", {desc->Width, desc->Height, initial != nullptr});
        machine.staging = *desc;
        if (SUCCEEDED(result)) *texture = make(texture_methods());
        return result;
      });
  return methods;
}

inline Methods& context_methods() {
  static Methods methods =
      object_methods()
          .Set(
              VLK_SLOT(ID3D11DeviceContext, CopyResource),
              +[](Object*, void*, void*) { machine.Note("CopyResource"); })
          .Set(
              VLK_SLOT(ID3D11DeviceContext, Map),
              +[](Object*, void*, UINT sub, D3D11_MAP type, UINT flags, D3D11_MAPPED_SUBRESOURCE* mapped) {
                const HRESULT result = machine.Step("Map", {sub, type, flags});
                mapped->pData = machine.memory.data();
                mapped->RowPitch = machine.pitch;
                return result;
              })
          .Set(
              VLK_SLOT(ID3D11DeviceContext, Unmap),
              +[](Object*, void*, UINT sub) { machine.Note("Unmap", {sub}); });
  return methods;
}

inline HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result) {
  *result = nullptr;
  if (IsEqualIID(iid, IID_IDXGIOutput1)) {
    const HRESULT outcome = machine.Step("QueryInterface(IDXGIOutput1)");
    if (FAILED(outcome)) return outcome;
    add_ref(self);
    *result = self;
    return S_OK;
  }
  if (IsEqualIID(iid, IID_ID3D11Texture2D)) {
    const HRESULT outcome = machine.Step("QueryInterface(ID3D11Texture2D)");
    if (SUCCEEDED(outcome)) *result = make(texture_methods());
    return outcome;
  }
  return E_NOINTERFACE;
}

}  // namespace vlk::test::dxgi

extern "C" HRESULT WINAPI CreateDXGIFactory1(REFIID iid, void** factory) {
  using namespace vlk::test::dxgi;
  *factory = nullptr;
  const HRESULT result = machine.Step("CreateDXGIFactory1", {IsEqualIID(iid, IID_IDXGIFactory1)});
  if (SUCCEEDED(result)) *factory = make(factory_methods());
  return result;
}

extern "C" HRESULT WINAPI D3D11CreateDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, HMODULE software,
                                            UINT flags, const D3D_FEATURE_LEVEL* levels, UINT level_count,
                                            UINT version, ID3D11Device** device, D3D_FEATURE_LEVEL* level,
                                            ID3D11DeviceContext** context) {
  using namespace vlk::test::dxgi;
  const HRESULT result = machine.Step(
      "D3D11CreateDevice", {reinterpret_cast<Object*>(adapter)->adapter, type, software != nullptr, flags,
                            levels != nullptr, level_count, version, level != nullptr});
  if (FAILED(result)) return result;
  *device = reinterpret_cast<ID3D11Device*>(make(device_methods()));
  *context = reinterpret_cast<ID3D11DeviceContext*>(make(context_methods()));
  return result;
}
