// References, interfaces and misuse of the double's objects.
#define CINTERFACE
#include <initguid.h>
// initguid.h comes before the interfaces' headers, so that these define the interfaces' identifiers.
#include <d3d11.h>
#include <dxgi1_2.h>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/dxgi/mirror.h"
#include "tests/doubles/dxgi/objects.h"

namespace vantelink_doubles {
namespace {

constexpr std::int32_t kDefaultWidth = 1280, kDefaultHeight = 720;

DesktopBoard own_board;

ULONG WINAPI add_ref(Object* self) {
  ++desktop_board().references;
  ++self->program_refs;
  return static_cast<ULONG>(++self->references);
}

ULONG WINAPI release(Object* self) {
  if (self->program_refs == 0) {
    misuse(DesktopMisuse::ReleasedTooOften);
    return 0;
  }
  --desktop_board().references;
  --self->program_refs;
  const LONG left = self->references - 1;
  drop(self);
  return static_cast<ULONG>(left);
}

HRESULT WINAPI query_interface(Object* self, REFIID iid, void** result) {
  *result = nullptr;
  HRESULT outcome = E_NOINTERFACE;
  if (IsEqualIID(iid, IID_IUnknown)) {
    outcome = S_OK;
  } else if (IsEqualIID(iid, IID_IDXGIOutput1) && self->kind == Kind::Output) {
    outcome = desktop_board().output1_result;
  } else if (IsEqualIID(iid, IID_ID3D11Texture2D) && self->kind == Kind::Texture) {
    outcome = desktop_board().texture_result;
  }
  if (FAILED(outcome)) return outcome;
  add_ref(self);
  *result = self;
  return S_OK;
}

}  // namespace

DesktopBoard& desktop_board() {
  static DesktopBoard& the_board = map_board(kDesktopBoardVariable, own_board);
  return the_board;
}

void keep(Object* object) {
  if (object != nullptr) ++object->references;
}

void drop(Object* object) {
  if (object == nullptr || --object->references > 0) return;
  Object* const parent = object->parent;
  --desktop_board().live;
  object->destroy(object);
  drop(parent);
}

void enrol(Object* object) {
  keep(object->parent);
  ++desktop_board().live;
  ++desktop_board().references;
}

MethodTable unknown_methods() {
  return {query_interface, add_ref, release};
}

bool is_a(const Object* object, Kind kind) {
  return object != nullptr && object->kind == kind;
}

bool is(DesktopAbsurdity absurdity) {
  return desktop_board().absurdity == static_cast<std::int32_t>(absurdity);
}

HRESULT misuse(DesktopMisuse kind, HRESULT result) {
  desktop_board().last_misuse = static_cast<std::int32_t>(kind);
  ++desktop_board().misuses;
  return result;
}

RECT area_of(std::int32_t place) {
  if (shows_mirror()) {
    const SIZE size = mirror_size();
    return {0, 0, size.cx, size.cy};
  }
  const DesktopBoard& board = desktop_board();
  if (board.output_count <= 0) return {0, 0, kDefaultWidth, kDefaultHeight};
  const OutputCells& output = board.outputs[place];
  return {output.left, output.top, output.left + output.width, output.top + output.height};
}

bool attached(std::int32_t place) {
  const DesktopBoard& board = desktop_board();
  return shows_mirror() || board.output_count <= 0 || board.outputs[place].unattached == 0;
}

}  // namespace vantelink_doubles
