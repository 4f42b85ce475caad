// The factory, the adapters and the outputs that the board describes, and the refusals of DuplicateOutput.
#define CINTERFACE
#include <d3d11.h>
#include <dxgi1_2.h>

#include <utility>

#include "tests/doubles/dxgi/duplication.h"
#include "tests/doubles/dxgi/mirror.h"
#include "tests/doubles/dxgi/objects.h"
#include "tests/windows/support/holdings.h"

namespace vantelink_doubles {
namespace {

// The number of programs that Windows lets duplicate the desktop at the same time.
constexpr std::int32_t kMostDuplicatingPrograms = 4;

int output_count() {
  if (shows_mirror()) return 1;
  const std::int32_t count = desktop_board().output_count;
  return count <= 0 ? 1 : count > kMostOutputs ? kMostOutputs : count;
}

HRESULT WINAPI describe_output(Object* self, DXGI_OUTPUT_DESC* desc) {
  if (desc == nullptr) return misuse(DesktopMisuse::NullArgument);
  desc->DesktopCoordinates = area_of(self->place);
  desc->AttachedToDesktop = attached(self->place);
  desc->Rotation = rotation_of(self->place);
  return S_OK;
}

HRESULT WINAPI duplicate_output(Object* self, Object* device, Object** duplication) {
  if (duplication == nullptr) return misuse(DesktopMisuse::NullArgument);
  *duplication = nullptr;
  // A device's place is the number of its adapter, and an output's parent is its adapter.
  if (!is_a(device, Kind::Device) || device->place != self->parent->place)
    return misuse(DesktopMisuse::ForeignDevice);
  if (is_duplicated(self->place)) return misuse(DesktopMisuse::SecondDuplication);
  if (desktop_board().duplicate_result != 0) return desktop_board().duplicate_result;
  if (desktop_board().other_programs >= kMostDuplicatingPrograms) return DXGI_ERROR_NOT_CURRENTLY_AVAILABLE;
  std::shared_ptr<Mirror> mirror;
  if (shows_mirror() && !(mirror = Mirror::connect())) return DXGI_ERROR_NOT_CURRENTLY_AVAILABLE;
  *duplication = make_duplication(device, self->place, std::move(mirror));
  ++desktop_board().duplications;
  return S_OK;
}

MethodTable& output_methods() {
  static MethodTable methods = unknown_methods()
                                   .Set(VLK_SLOT(IDXGIOutput1, GetDesc), describe_output)
                                   .Set(VLK_SLOT(IDXGIOutput1, DuplicateOutput), duplicate_output);
  return methods;
}

HRESULT WINAPI enum_outputs(Object* self, UINT index, Object** output) {
  if (output == nullptr) return misuse(DesktopMisuse::NullArgument, DXGI_ERROR_INVALID_CALL);
  *output = nullptr;
  for (std::int32_t place = 0; place < output_count(); ++place) {
    if (desktop_board().outputs[place].adapter != self->place || index-- > 0) continue;
    *output = make<Object>(Kind::Output, output_methods(), self, place);
    return S_OK;
  }
  return DXGI_ERROR_NOT_FOUND;
}

MethodTable& adapter_methods() {
  static MethodTable methods = unknown_methods().Set(VLK_SLOT(IDXGIAdapter1, EnumOutputs), enum_outputs);
  return methods;
}

HRESULT WINAPI enum_adapters(Object* self, UINT index, Object** adapter) {
  if (adapter == nullptr) return misuse(DesktopMisuse::NullArgument, DXGI_ERROR_INVALID_CALL);
  *adapter = nullptr;
  const auto number = static_cast<std::int32_t>(index);
  if (number > desktop_board().outputs[output_count() - 1].adapter) return DXGI_ERROR_NOT_FOUND;
  *adapter = make<Object>(Kind::Adapter, adapter_methods(), self, number);
  return S_OK;
}

MethodTable& factory_methods() {
  static MethodTable methods = unknown_methods().Set(VLK_SLOT(IDXGIFactory1, EnumAdapters1), enum_adapters);
  return methods;
}

void take_census() {
  desktop_board().census_handles = static_cast<std::int32_t>(vlk::test::kernel_handles());
  desktop_board().census_gdi_objects = static_cast<std::int32_t>(vlk::test::gdi_objects());
  desktop_board().census_wanted = 0;
}

}  // namespace
}  // namespace vantelink_doubles

extern "C" HRESULT WINAPI CreateDXGIFactory1(REFIID iid, void** factory) {
  using namespace vantelink_doubles;
  *factory = nullptr;
  ++desktop_board().factories;
  if (desktop_board().census_wanted != 0) take_census();
  if (desktop_board().factory_result != 0) return desktop_board().factory_result;
  if (!IsEqualIID(iid, IID_IDXGIFactory1)) return E_NOINTERFACE;
  *factory = make<Object>(Kind::Factory, factory_methods(), nullptr, 0);
  return S_OK;
}
