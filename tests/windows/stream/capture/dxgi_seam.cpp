// initguid.h comes first, so that the headers after it define their identifiers.
#define CINTERFACE
#include <initguid.h>
// clang-format off
#include "tests/windows/stream/capture/dxgi_seam.h"
// clang-format on
#include <dxgi1_2.h>

#include <utility>

#include "tests/doubles/method_table.h"

namespace vlk::test::dxgi {

Machine machine;

HRESULT Machine::Step(const std::string& name, std::vector<std::int64_t> arguments) {
  calls.push_back({name, std::move(arguments)});
  if (nth_failure != nullptr && nth_failure->fails()) return E_FAIL;
  const auto failure = failures.find(name);
  return failure == failures.end() ? S_OK : failure->second;
}

void Machine::Note(const std::string& name, std::vector<std::int64_t> arguments) {
  calls.push_back({name, std::move(arguments)});
}

std::vector<std::string> Machine::Names() const {
  std::vector<std::string> names;
  for (const Call& call : calls)
    names.push_back(call.name);
  return names;
}

int Machine::Count(const std::string& name) const {
  int count = 0;
  for (const Call& call : calls)
    count += call.name == name;
  return count;
}

namespace {

// All objects have one layout. The table of methods decides which interface an object has.
struct Object {
  void** methods;
  ULONG references;
  UINT adapter, output;
};

HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result);

ULONG WINAPI add_ref(Object* self) {
  return ++self->references;
}

ULONG WINAPI release(Object* self) {
  if (--self->references > 0) return self->references;
  --machine.live;
  delete self;
  return 0;
}

using Methods = vantelink_doubles::MethodTable;

Methods object_methods() {
  return {query_interface, add_ref, release};
}

Object* make(Methods& methods, UINT adapter = 0, UINT output = 0) {
  ++machine.live;
  return new Object{methods.get(), 1, adapter, output};
}

Methods& texture_methods() {
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

Methods& resource_methods() {
  static Methods methods = object_methods();
  return methods;
}

Methods& duplication_methods() {
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

Methods& output_methods() {
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

Methods& adapter_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(IDXGIAdapter1, EnumOutputs), +[](Object* self, UINT index, void** output) -> HRESULT {
        *output = nullptr;
        if (index >= machine.adapters[self->adapter].size()) return DXGI_ERROR_NOT_FOUND;
        *output = make(output_methods(), self->adapter, index);
        return S_OK;
      });
  return methods;
}

Methods& factory_methods() {
  static Methods methods = object_methods().Set(
      VLK_SLOT(IDXGIFactory1, EnumAdapters1), +[](Object*, UINT index, void** adapter) -> HRESULT {
        *adapter = nullptr;
        if (index >= machine.adapters.size()) return DXGI_ERROR_NOT_FOUND;
        *adapter = make(adapter_methods(), index);
        return S_OK;
      });
  return methods;
}

Methods& device_methods() {
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

Methods& context_methods() {
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

HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result) {
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

}  // namespace
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
