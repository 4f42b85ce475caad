// Desktop duplication for machines without it: a dxgi.dll with scripted pictures on scripted outputs, and the
// Direct3D device that copies them. A board (boards.h) describes the machine and records the calls.
#define CINTERFACE
#include <initguid.h>
// initguid.h comes before the interfaces' headers, so that these define the interfaces' identifiers.
#include <d3d11.h>
#include <dxgi1_2.h>

#include <memory>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/boards.h"
#include "tests/doubles/dxgi/texture_memory.h"
#include "tests/doubles/method_table.h"
#include "tests/doubles/scripted_picture.h"
#include "tests/windows/support/holdings.h"

namespace vantelink_doubles {
namespace {

constexpr std::int32_t kDefaultWidth = 1280, kDefaultHeight = 720;
constexpr std::uint32_t kDefaultPadding = 64;  // bytes after each row
constexpr std::uint32_t kBytesPerPixel = 4;

DesktopBoard own_board;

DesktopBoard& board() {
  static DesktopBoard& the_board = map_board(kDesktopBoardVariable, own_board);
  return the_board;
}

bool is(DesktopAbsurdity absurdity) {
  return board().absurdity == static_cast<std::int32_t>(absurdity);
}

// All objects have one layout. The table of methods decides which interface an object has.
struct Object {
  void** methods;
  LONG references = 1;
  std::int32_t place = 0;  // index of an output on the board, or number of an adapter
  bool frame_held = false;
  // The following members belong to textures.
  std::uint32_t width = 0, height = 0, pitch = 0;
  std::int32_t number = 0;                // number of the picture on a desktop texture
  std::unique_ptr<TextureMemory> memory;  // memory of a staging texture
};

HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result);

ULONG WINAPI add_ref(Object* self) {
  return static_cast<ULONG>(InterlockedIncrement(&self->references));
}

ULONG WINAPI release(Object* self) {
  const LONG left = InterlockedDecrement(&self->references);
  if (left > 0) return static_cast<ULONG>(left);
  --board().live;
  delete self;
  return 0;
}

MethodTable table() {
  return {query_interface, add_ref, release};
}

Object* make(MethodTable& methods, std::int32_t place = 0) {
  ++board().live;
  auto* const object = new Object{};
  object->methods = methods.get();
  object->place = place;
  return object;
}

int output_count() {
  const std::int32_t count = board().output_count;
  return count <= 0 ? 1 : count > kMostOutputs ? kMostOutputs : count;
}

RECT area_of(std::int32_t place) {
  if (board().output_count <= 0) return {0, 0, kDefaultWidth, kDefaultHeight};
  const OutputCells& output = board().outputs[place];
  return {output.left, output.top, output.left + output.width, output.top + output.height};
}

void describe(const Object* texture, D3D11_TEXTURE2D_DESC* desc) {
  *desc = {};
  desc->Width = is(DesktopAbsurdity::ZeroWidth) ? 0 : texture->width;
  desc->Height = is(DesktopAbsurdity::ZeroHeight) ? 0 : texture->height;
  desc->MipLevels = desc->ArraySize = desc->SampleDesc.Count = 1;
  desc->Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc->BindFlags = D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE;
  desc->MiscFlags = D3D11_RESOURCE_MISC_SHARED;
}

MethodTable& texture_methods() {
  static MethodTable methods = table().Set(
      VLK_SLOT(ID3D11Texture2D, GetDesc),
      +[](Object* self, D3D11_TEXTURE2D_DESC* desc) { describe(self, desc); });
  return methods;
}

// Creates a texture for the desktop's current picture. The picture is painted when the texture is copied.
Object* make_desktop_texture(std::int32_t place) {
  const RECT area = area_of(place);
  const std::int32_t width = board().width, height = board().height;
  Object* const texture = make(texture_methods(), place);
  texture->width = static_cast<std::uint32_t>(width > 0 ? width : area.right - area.left);
  texture->height = static_cast<std::uint32_t>(height > 0 ? height : area.bottom - area.top);
  texture->number = ++board().frames;
  return texture;
}

HRESULT WINAPI acquire_next_frame(Object* self, UINT timeout_ms, DXGI_OUTDUPL_FRAME_INFO* info,
                                  Object** resource) {
  *resource = nullptr;
  *info = {};
  if (self->frame_held) {
    ++board().misuses;
    return DXGI_ERROR_INVALID_CALL;
  }
  if (board().still != 0) {
    Sleep(timeout_ms);
    ++board().time_outs;
    return DXGI_ERROR_WAIT_TIMEOUT;
  }
  if (const HRESULT result = board().acquire_result; result != 0) {
    ++board().losses;
    return result;
  }
  self->frame_held = true;
  if (!is(DesktopAbsurdity::NullResource)) *resource = make_desktop_texture(self->place);
  return S_OK;
}

HRESULT WINAPI release_frame(Object* self) {
  if (!self->frame_held) {
    ++board().misuses;
    return DXGI_ERROR_INVALID_CALL;
  }
  self->frame_held = false;
  return S_OK;
}

MethodTable& duplication_methods() {
  static MethodTable methods =
      table()
          .Set(VLK_SLOT(IDXGIOutputDuplication, AcquireNextFrame), acquire_next_frame)
          .Set(VLK_SLOT(IDXGIOutputDuplication, ReleaseFrame), release_frame);
  return methods;
}

HRESULT WINAPI describe_output(Object* self, DXGI_OUTPUT_DESC* desc) {
  desc->DesktopCoordinates = area_of(self->place);
  desc->AttachedToDesktop = board().output_count <= 0 || board().outputs[self->place].unattached == 0;
  return S_OK;
}

HRESULT WINAPI duplicate_output(Object* self, IUnknown*, Object** duplication) {
  *duplication = nullptr;
  if (board().duplicate_result != 0) return board().duplicate_result;
  *duplication = make(duplication_methods(), self->place);
  ++board().duplications;
  return S_OK;
}

MethodTable& output_methods() {
  static MethodTable methods = table()
                                   .Set(VLK_SLOT(IDXGIOutput1, GetDesc), describe_output)
                                   .Set(VLK_SLOT(IDXGIOutput1, DuplicateOutput), duplicate_output);
  return methods;
}

HRESULT WINAPI enum_outputs(Object* self, UINT index, Object** output) {
  *output = nullptr;
  for (std::int32_t place = 0; place < output_count(); ++place) {
    if (board().outputs[place].adapter != self->place || index-- > 0) continue;
    *output = make(output_methods(), place);
    return S_OK;
  }
  return DXGI_ERROR_NOT_FOUND;
}

MethodTable& adapter_methods() {
  static MethodTable methods = table().Set(VLK_SLOT(IDXGIAdapter1, EnumOutputs), enum_outputs);
  return methods;
}

HRESULT WINAPI enum_adapters(Object*, UINT index, Object** adapter) {
  *adapter = nullptr;
  const auto number = static_cast<std::int32_t>(index);
  if (number > board().outputs[output_count() - 1].adapter) return DXGI_ERROR_NOT_FOUND;
  *adapter = make(adapter_methods(), number);
  return S_OK;
}

MethodTable& factory_methods() {
  static MethodTable methods = table().Set(VLK_SLOT(IDXGIFactory1, EnumAdapters1), enum_adapters);
  return methods;
}

// Creates a staging texture, the only kind that the agent creates.
HRESULT WINAPI create_texture(Object*, const D3D11_TEXTURE2D_DESC* desc, const void*, Object** texture) {
  *texture = nullptr;
  if (board().staging_result != 0) return board().staging_result;
  const std::uint32_t row = desc->Width * kBytesPerPixel;
  std::uint32_t pitch = board().pitch > 0 ? static_cast<std::uint32_t>(board().pitch) : row + kDefaultPadding;
  if (is(DesktopAbsurdity::ShortPitch)) pitch = row / 2;
  Object* const object = make(texture_methods());
  object->width = desc->Width;
  object->height = desc->Height;
  object->pitch = pitch;
  // The memory ends after the last row's pixels, because the padding of the last row need not exist.
  const std::size_t last_row = pitch < row ? pitch : row;
  object->memory = std::make_unique<TextureMemory>(
      desc->Height == 0 ? 0 : std::size_t{pitch} * (desc->Height - 1) + last_row);
  *texture = object;
  return S_OK;
}

MethodTable& device_methods() {
  static MethodTable methods = table().Set(VLK_SLOT(ID3D11Device, CreateTexture2D), create_texture);
  return methods;
}

// Copies a texture. Like a real device, it copies nothing if the sizes differ or the rows are too short.
void WINAPI copy_resource(Object*, Object* to, Object* from) {
  if (!to->memory || to->width != from->width || to->height != from->height) return;
  if (to->pitch < to->width * kBytesPerPixel) return;
  paint_picture(to->memory->get(), to->width, to->height, to->pitch, static_cast<std::uint32_t>(from->number),
                static_cast<std::uint32_t>(from->place));
}

HRESULT WINAPI map(Object*, Object* texture, UINT, D3D11_MAP, UINT, D3D11_MAPPED_SUBRESOURCE* mapped) {
  *mapped = {};
  if (board().map_result != 0) return board().map_result;
  mapped->pData = is(DesktopAbsurdity::NullMemory) ? nullptr : texture->memory->get();
  mapped->RowPitch = texture->pitch;
  return S_OK;
}

MethodTable& context_methods() {
  static MethodTable methods = table()
                                   .Set(VLK_SLOT(ID3D11DeviceContext, CopyResource), copy_resource)
                                   .Set(VLK_SLOT(ID3D11DeviceContext, Map), map)
                                   .Set(
                                       VLK_SLOT(ID3D11DeviceContext, Unmap), +[](Object*, Object*, UINT) {});
  return methods;
}

HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result) {
  *result = nullptr;
  HRESULT outcome = E_NOINTERFACE;
  if (IsEqualIID(iid, IID_IDXGIOutput1) && self->methods == output_methods().get()) {
    outcome = board().output1_result;
  } else if (IsEqualIID(iid, IID_ID3D11Texture2D) && self->methods == texture_methods().get()) {
    outcome = board().texture_result;
  }
  if (FAILED(outcome)) return outcome;
  add_ref(self);
  *result = self;
  return S_OK;
}

void take_census() {
  board().census_handles = static_cast<std::int32_t>(vlk::test::kernel_handles());
  board().census_gdi_objects = static_cast<std::int32_t>(vlk::test::gdi_objects());
  board().census_wanted = 0;
}

}  // namespace
}  // namespace vantelink_doubles

extern "C" HRESULT WINAPI CreateDXGIFactory1(REFIID iid, void** factory) {
  using namespace vantelink_doubles;
  *factory = nullptr;
  ++board().factories;
  if (board().census_wanted != 0) take_census();
  if (board().factory_result != 0) return board().factory_result;
  if (!IsEqualIID(iid, IID_IDXGIFactory1)) return E_NOINTERFACE;
  *factory = make(factory_methods());
  return S_OK;
}

extern "C" HRESULT WINAPI D3D11CreateDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, HMODULE, UINT,
                                            const D3D_FEATURE_LEVEL*, UINT, UINT version,
                                            ID3D11Device** device, D3D_FEATURE_LEVEL*,
                                            ID3D11DeviceContext** context) {
  using namespace vantelink_doubles;
  *device = nullptr;
  *context = nullptr;
  // In a call with an adapter, D3D_DRIVER_TYPE_UNKNOWN is the only valid driver type.
  if (adapter == nullptr || type != D3D_DRIVER_TYPE_UNKNOWN || version != D3D11_SDK_VERSION)
    return E_INVALIDARG;
  if (board().device_result != 0) return board().device_result;
  board().device_adapter = reinterpret_cast<Object*>(adapter)->place;
  *device = reinterpret_cast<ID3D11Device*>(make(device_methods()));
  *context = reinterpret_cast<ID3D11DeviceContext*>(make(context_methods()));
  return S_OK;
}
