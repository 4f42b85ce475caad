// A duplication: its pace, its loss, and the balance of its acquired and released frames.
#define CINTERFACE
#include "tests/doubles/dxgi/duplication.h"

#include <memory>
#include <utility>

#include "tests/doubles/dxgi/textures.h"

namespace vantelink_doubles {
namespace {

constexpr std::int32_t kDefaultRefreshRate = 60;  // changes of the desktop per second
constexpr std::int64_t kNanoseconds = 1000000000;

std::atomic<int> living[kMostOutputs];  // duplications by the output's place

struct Duplication : Object {
  Duplication() = default;
  ~Duplication() { --living[place]; }
  Duplication(const Duplication&) = delete;
  Duplication& operator=(const Duplication&) = delete;

  RECT area = {};  // of the output when the duplication was created
  bool lost = false;
  std::shared_ptr<Mirror> mirror;  // null for the scripted desktop
  std::shared_ptr<Frame> frame;    // the last one; null before the first
  std::int64_t change_shown = -1;  // number of the desktop's change in the last frame
};

std::int64_t now() {
  LARGE_INTEGER count, frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return count.QuadPart / frequency.QuadPart * kNanoseconds +
         count.QuadPart % frequency.QuadPart * kNanoseconds / frequency.QuadPart;
}

// The number of the desktop's last change. The scripted desktop changes at the refresh rate.
std::int64_t last_change(const Duplication* self) {
  if (self->mirror) return self->mirror->published();
  const std::int32_t rate = desktop_board().refresh_rate;
  return now() / (kNanoseconds / (rate > 0 ? rate : kDefaultRefreshRate));
}

bool holds_frame(const Duplication* self) {
  return self->frame && self->frame->held;
}

// Notes that the output has changed its mode or left the desktop, which ends its duplication.
void follow_output(Duplication* self) {
  RECT area = {};
  if (self->mirror) {
    const SIZE size = self->mirror->size();
    area = {0, 0, size.cx, size.cy};
  } else {
    area = area_of(self->place);
  }
  if (!EqualRect(&area, &self->area) || !attached(self->place)) self->lost = true;
}

// Waits for a change of the mirrored desktop, and returns the result.
HRESULT wait_for_mirror(Duplication* self, UINT timeout_ms) {
  const bool waits = self->mirror->published() == self->change_shown;
  const HRESULT result =
      self->lost ? DXGI_ERROR_ACCESS_LOST : self->mirror->wait_for_change(self->change_shown, timeout_ms);
  if (result == DXGI_ERROR_ACCESS_LOST) self->lost = true;
  follow_output(self);
  if (self->lost) return DXGI_ERROR_ACCESS_LOST;
  if (waits && result == S_OK) ++desktop_board().wakes;
  return result;
}

// Waits for a change of the desktop, and returns the result.
HRESULT wait_for_change(Duplication* self, UINT timeout_ms) {
  if (self->mirror) return wait_for_mirror(self, timeout_ms);
  const std::int64_t deadline = now() + std::int64_t{timeout_ms} * 1000000;
  for (;;) {
    follow_output(self);
    if (self->lost) return DXGI_ERROR_ACCESS_LOST;
    if (desktop_board().still == 0) {
      if (const HRESULT result = desktop_board().acquire_result; result != 0) {
        self->lost = result == DXGI_ERROR_ACCESS_LOST;
        return result;
      }
      if (last_change(self) != self->change_shown) return S_OK;
    }
    if (timeout_ms != INFINITE && now() >= deadline) return DXGI_ERROR_WAIT_TIMEOUT;
    Sleep(1);
  }
}

// The size of the desktop's texture. The picture of a turned output is not turned: it lies on its side.
SIZE texture_size(const Duplication* self) {
  const RECT area = self->mirror ? self->area : area_of(self->place);
  SIZE size = {area.right - area.left, area.bottom - area.top};
  if (self->mirror) return size;
  const DXGI_MODE_ROTATION rotation = rotation_of(self->place);
  if (rotation == DXGI_MODE_ROTATION_ROTATE90 || rotation == DXGI_MODE_ROTATION_ROTATE270)
    std::swap(size.cx, size.cy);
  const DesktopBoard& board = desktop_board();
  if (board.width > 0) size.cx = board.width;
  if (board.height > 0) size.cy = board.height;
  return size;
}

HRESULT WINAPI acquire_next_frame(Duplication* self, UINT timeout_ms, DXGI_OUTDUPL_FRAME_INFO* info,
                                  Object** resource) {
  if (info == nullptr || resource == nullptr) return misuse(DesktopMisuse::NullArgument);
  *resource = nullptr;
  *info = {};
  desktop_board().wait = static_cast<std::int32_t>(timeout_ms);
  if (holds_frame(self)) return misuse(DesktopMisuse::FrameNotReleased, DXGI_ERROR_INVALID_CALL);
  // The texture of the last frame may have been given a later picture than that of its time.
  if (self->frame && self->mirror) self->change_shown = self->frame->change;
  const HRESULT result = wait_for_change(self, timeout_ms);
  if (result == DXGI_ERROR_WAIT_TIMEOUT) {
    ++desktop_board().time_outs;
  } else if (FAILED(result)) {
    ++desktop_board().losses;
  }
  if (FAILED(result)) return result;

  const std::int64_t change = last_change(self);
  info->AccumulatedFrames =
      self->change_shown < 0 ? 1 : static_cast<UINT>(change - self->change_shown);  // merged into this frame
  QueryPerformanceCounter(&info->LastPresentTime);
  self->change_shown = change;
  self->frame = std::make_shared<Frame>();
  self->frame->number = ++desktop_board().frames;
  self->frame->mirror = self->mirror;
  self->frame->change = change;
  if (!is(DesktopAbsurdity::NullResource))
    *resource = make_desktop_texture(self->parent, self->place, texture_size(self), self->frame);
  return S_OK;
}

HRESULT WINAPI release_frame(Duplication* self) {
  if (!holds_frame(self)) return misuse(DesktopMisuse::NoFrameHeld, DXGI_ERROR_INVALID_CALL);
  self->frame->held = false;
  follow_output(self);
  return self->lost ? DXGI_ERROR_ACCESS_LOST : S_OK;
}

void WINAPI describe_duplication(Duplication* self, DXGI_OUTDUPL_DESC* desc) {
  const SIZE size = texture_size(self);
  *desc = {};
  desc->ModeDesc.Width = static_cast<UINT>(size.cx);
  desc->ModeDesc.Height = static_cast<UINT>(size.cy);
  desc->ModeDesc.RefreshRate = {kDefaultRefreshRate, 1};
  desc->ModeDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc->Rotation = rotation_of(self->place);
}

MethodTable& duplication_methods() {
  static MethodTable methods =
      unknown_methods()
          .Set(VLK_SLOT(IDXGIOutputDuplication, GetDesc), describe_duplication)
          .Set(VLK_SLOT(IDXGIOutputDuplication, AcquireNextFrame), acquire_next_frame)
          .Set(VLK_SLOT(IDXGIOutputDuplication, ReleaseFrame), release_frame);
  return methods;
}

}  // namespace

Object* make_duplication(Object* device, std::int32_t place, std::shared_ptr<Mirror> mirror) {
  auto* const duplication = make<Duplication>(Kind::Duplication, duplication_methods(), device, place);
  duplication->mirror = std::move(mirror);
  duplication->area = area_of(place);
  ++living[place];
  return duplication;
}

bool is_duplicated(std::int32_t place) {
  return living[place] > 0;
}

DXGI_MODE_ROTATION rotation_of(std::int32_t place) {
  const std::int32_t rotation = desktop_board().outputs[place].rotation;
  return rotation == 0 ? DXGI_MODE_ROTATION_IDENTITY : static_cast<DXGI_MODE_ROTATION>(rotation);
}

}  // namespace vantelink_doubles
