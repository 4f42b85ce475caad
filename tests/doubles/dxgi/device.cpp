// The Direct3D device: it creates a staging texture, copies a desktop texture to it and maps its memory. Each
// argument is checked. Where Direct3D 11 permits more than the agent's calls, the double refuses it.
#define CINTERFACE
#include <d3d11.h>

#include <cstring>
#include <utility>

#include "tests/doubles/dxgi/objects.h"
#include "tests/doubles/dxgi/texture_memory.h"
#include "tests/doubles/dxgi/textures.h"
#include "tests/doubles/scripted_picture.h"

namespace vantelink_doubles {
namespace {

constexpr std::uint32_t kDefaultPadding = 64;  // bytes after each row
constexpr std::uint32_t kBytesPerPixel = 4;

struct Texture : Object {
  Texture() = default;
  ~Texture() {
    if (mapped) misuse(DesktopMisuse::ReleasedWhileMapped);
  }
  Texture(const Texture&) = delete;
  Texture& operator=(const Texture&) = delete;

  D3D11_TEXTURE2D_DESC desc = {};
  std::shared_ptr<Frame> frame;  // of a desktop texture
  // Of a staging texture:
  std::uint32_t pitch = 0;
  std::unique_ptr<TextureMemory> memory;
  std::int64_t change = 0;       // number of the mirror's picture that the memory shows; 0 without one
  std::weak_ptr<Mirror> mirror;  // the mirror of this picture
  bool mapped = false;
};

void WINAPI describe_texture(Texture* self, D3D11_TEXTURE2D_DESC* desc) {
  *desc = self->desc;
  if (is(DesktopAbsurdity::ZeroWidth)) desc->Width = 0;
  if (is(DesktopAbsurdity::ZeroHeight)) desc->Height = 0;
}

MethodTable& texture_methods() {
  static MethodTable methods = unknown_methods().Set(VLK_SLOT(ID3D11Texture2D, GetDesc), describe_texture);
  return methods;
}

// A texture with one level, one element and one sample.
D3D11_TEXTURE2D_DESC plain_texture(UINT width, UINT height) {
  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = width;
  desc.Height = height;
  desc.MipLevels = desc.ArraySize = desc.SampleDesc.Count = 1;
  desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  return desc;
}

// Whether the description is that of a staging texture that can hold a desktop picture and that the CPU
// reads.
bool is_staging(const D3D11_TEXTURE2D_DESC& desc) {
  D3D11_TEXTURE2D_DESC allowed = plain_texture(desc.Width, desc.Height);
  allowed.Usage = D3D11_USAGE_STAGING;
  allowed.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
  const auto is_length = [](UINT length) {
    return length >= 1 && length <= D3D11_REQ_TEXTURE2D_U_OR_V_DIMENSION;
  };
  return is_length(desc.Width) && is_length(desc.Height) && std::memcmp(&desc, &allowed, sizeof(desc)) == 0;
}

HRESULT WINAPI create_texture(Object* self, const D3D11_TEXTURE2D_DESC* desc, const void* initial,
                              Object** texture) {
  if (desc == nullptr || texture == nullptr) return misuse(DesktopMisuse::NullArgument);
  *texture = nullptr;
  if (!is_staging(*desc) || initial != nullptr) return misuse(DesktopMisuse::TextureDescription);
  if (desktop_board().staging_result != 0) return desktop_board().staging_result;

  const std::uint32_t row = desc->Width * kBytesPerPixel;
  const std::int32_t wanted = desktop_board().pitch;
  std::uint32_t pitch = wanted > 0 ? static_cast<std::uint32_t>(wanted) : row + kDefaultPadding;
  if (is(DesktopAbsurdity::ShortPitch)) pitch = row / 2;
  auto* const staging = make<Texture>(Kind::Texture, texture_methods(), self, 0);
  staging->desc = *desc;
  staging->pitch = pitch;
  // The memory ends after the last row's pixels, because the padding of the last row need not exist.
  const std::size_t last_row = pitch < row ? pitch : row;
  staging->memory = std::make_unique<TextureMemory>(std::size_t{pitch} * (desc->Height - 1) + last_row);
  *texture = staging;
  return S_OK;
}

MethodTable& device_methods() {
  static MethodTable methods = unknown_methods().Set(VLK_SLOT(ID3D11Device, CreateTexture2D), create_texture);
  return methods;
}

// Whether Direct3D can copy the texture `from` to `to`: both belong to the context's device, none is mapped,
// and size, format and counts are equal.
bool can_copy(const Object* context, const Texture* to, const Texture* from) {
  if (!is_a(to, Kind::Texture) || !is_a(from, Kind::Texture) || to == from) return false;
  if (to->parent != context->parent || from->parent != context->parent) return false;
  const D3D11_TEXTURE2D_DESC &a = to->desc, &b = from->desc;
  return a.Width == b.Width && a.Height == b.Height && a.Format == b.Format && a.MipLevels == b.MipLevels &&
         a.ArraySize == b.ArraySize && a.SampleDesc.Count == b.SampleDesc.Count;
}

// Makes the staging texture `to` show the mirror's last picture. A mirror whose size has changed copies
// nothing: its duplication is lost.
void copy_mirror(Texture& to, Frame& frame) {
  PictureCopy copy;
  copy.pixels = to.memory->get();
  copy.pitch = to.pitch;
  copy.width = static_cast<std::int32_t>(to.desc.Width);
  copy.height = static_cast<std::int32_t>(to.desc.Height);
  // Numbers of different connections are not comparable.
  if (to.mirror.lock() == frame.mirror) copy.number = to.change;
  frame.mirror->update_copy(copy);
  to.mirror = frame.mirror;
  to.change = copy.number;
  if (copy.number > 0) frame.change = copy.number;
}

// Copies the picture of a desktop texture to a staging texture.
void copy_picture(Texture& to, const Texture& from) {
  if (from.frame->mirror) {
    copy_mirror(to, *from.frame);
  } else {
    paint_picture(to.memory->get(), to.desc.Width, to.desc.Height, to.pitch,
                  static_cast<std::uint32_t>(from.frame->number), static_cast<std::uint32_t>(from.place));
  }
}

// A call that Windows forbids copies nothing, as on a real device.
void WINAPI copy_resource(Object* self, Texture* to, Texture* from) {
  if (!can_copy(self, to, from)) {
    misuse(DesktopMisuse::CopyArguments);
  } else if (to->mapped || from->mapped) {
    misuse(DesktopMisuse::CopyWhileMapped);
  } else if (from->frame && !from->frame->held) {
    misuse(DesktopMisuse::ReleasedFrameUsed);
  } else if (!to->memory || from->memory) {
    misuse(DesktopMisuse::CopyArguments);
  } else if (to->pitch >= to->desc.Width * kBytesPerPixel) {  // smaller only as an absurdity
    copy_picture(*to, *from);
  }
}

HRESULT WINAPI map(Object* self, Texture* texture, UINT subresource, D3D11_MAP type, UINT flags,
                   D3D11_MAPPED_SUBRESOURCE* mapped) {
  if (mapped == nullptr) return misuse(DesktopMisuse::NullArgument);
  *mapped = {};
  if (!is_a(texture, Kind::Texture) || !texture->memory || texture->parent != self->parent ||
      subresource != 0 || type != D3D11_MAP_READ || flags != 0) {
    return misuse(DesktopMisuse::MapArguments);
  }
  if (texture->mapped) return misuse(DesktopMisuse::MappedTwice);
  if (desktop_board().map_result != 0) return desktop_board().map_result;
  texture->mapped = true;
  mapped->pData = is(DesktopAbsurdity::NullMemory) ? nullptr : texture->memory->get();
  mapped->RowPitch = texture->pitch;
  return S_OK;
}

void WINAPI unmap(Object*, Texture* texture, UINT subresource) {
  if (!is_a(texture, Kind::Texture) || !texture->mapped || subresource != 0) {
    misuse(DesktopMisuse::NotMapped);
    return;
  }
  texture->mapped = false;
}

MethodTable& context_methods() {
  static MethodTable methods = unknown_methods()
                                   .Set(VLK_SLOT(ID3D11DeviceContext, CopyResource), copy_resource)
                                   .Set(VLK_SLOT(ID3D11DeviceContext, Map), map)
                                   .Set(VLK_SLOT(ID3D11DeviceContext, Unmap), unmap);
  return methods;
}

}  // namespace

Object* make_desktop_texture(Object* device, std::int32_t place, SIZE size, std::shared_ptr<Frame> frame) {
  auto* const texture = make<Texture>(Kind::Texture, texture_methods(), device, place);
  texture->desc = plain_texture(static_cast<UINT>(size.cx), static_cast<UINT>(size.cy));
  texture->desc.BindFlags = D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE;
  texture->desc.MiscFlags = D3D11_RESOURCE_MISC_SHARED;
  texture->frame = std::move(frame);
  return texture;
}

}  // namespace vantelink_doubles

extern "C" HRESULT WINAPI D3D11CreateDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, HMODULE software,
                                            UINT flags, const D3D_FEATURE_LEVEL* levels, UINT level_count,
                                            UINT version, ID3D11Device** device, D3D_FEATURE_LEVEL*,
                                            ID3D11DeviceContext** context) {
  using namespace vantelink_doubles;
  *device = nullptr;
  *context = nullptr;
  auto* const on = reinterpret_cast<Object*>(adapter);
  // In a call with an adapter, D3D_DRIVER_TYPE_UNKNOWN is the only valid driver type.
  if (!is_a(on, Kind::Adapter) || type != D3D_DRIVER_TYPE_UNKNOWN || software != nullptr || flags != 0 ||
      (levels == nullptr) != (level_count == 0) || version != D3D11_SDK_VERSION) {
    return misuse(DesktopMisuse::DeviceArguments);
  }
  if (desktop_board().device_result != 0) return desktop_board().device_result;
  desktop_board().device_adapter = on->place;
  Object* const made = make<Object>(Kind::Device, device_methods(), on, on->place);
  *device = reinterpret_cast<ID3D11Device*>(made);
  *context = reinterpret_cast<ID3D11DeviceContext*>(make<Object>(Kind::Context, context_methods(), made, 0));
  return S_OK;
}
