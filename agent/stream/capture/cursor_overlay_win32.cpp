// Draws the pointer with GDI on a copy of the pixels beneath it.
#include "stream/capture/cursor_overlay.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {
namespace {

constexpr std::size_t kBytesPerPixel = 4;

struct Pointer {
  HCURSOR cursor = nullptr;    // owned by the system
  LONG left = 0, top = 0;      // virtual-desktop pixels
  LONG width = 0, height = 0;  // pixels; 0 when unknown
};

// The size of an icon with these bitmaps. Without a colour bitmap, the mask contains two images, one above
// the other.
SIZE icon_size(HBITMAP colour, HBITMAP mask) {
  BITMAP bitmap = {};
  if (GetObjectW(colour ? colour : mask, sizeof(bitmap), &bitmap) == 0) return {0, 0};
  return {bitmap.bmWidth, colour ? bitmap.bmHeight : bitmap.bmHeight / 2};
}

std::optional<Pointer> visible_pointer() {
  CURSORINFO info = {};
  info.cbSize = sizeof(info);
  if (!GetCursorInfo(&info)) return std::nullopt;
  if ((info.flags & CURSOR_SHOWING) == 0 || !info.hCursor) return std::nullopt;

  ICONINFO icon = {};
  if (!GetIconInfo(info.hCursor, &icon)) return std::nullopt;
  const UniqueBitmap colour(icon.hbmColor);
  const UniqueBitmap mask(icon.hbmMask);
  const SIZE size = icon_size(colour.get(), mask.get());
  return Pointer{info.hCursor, info.ptScreenPos.x - static_cast<LONG>(icon.xHotspot),
                 info.ptScreenPos.y - static_cast<LONG>(icon.yHotspot), size.cx, size.cy};
}

// The part of the frame that a pointer at (x, y) can cover; the whole frame if the pointer's size is unknown.
RECT covered_area(const Pointer& pointer, LONG x, LONG y, LONG width, LONG height) {
  if (pointer.width <= 0 || pointer.height <= 0) return {0, 0, width, height};
  return {std::clamp(x, 0L, width), std::clamp(y, 0L, height), std::clamp(x + pointer.width, 0L, width),
          std::clamp(y + pointer.height, 0L, height)};
}

// Copies an area between two packed images with rows of `stride` bytes.
void copy_area(std::uint8_t* to, const std::uint8_t* from, std::size_t stride, const RECT& area) {
  const std::size_t length = static_cast<std::size_t>(area.right - area.left) * kBytesPerPixel;
  for (LONG row = area.top; row < area.bottom; ++row) {
    const std::size_t offset =
        static_cast<std::size_t>(row) * stride + static_cast<std::size_t>(area.left) * kBytesPerPixel;
    std::memcpy(to + offset, from + offset, length);
  }
}

}  // namespace

// The drawing surface, of the frame's size. Members are released in the reverse of this order.
struct CursorOverlay::State {
  UniqueBitmap bitmap;
  std::uint8_t* bits = nullptr;  // the bitmap's pixels, owned by the bitmap
  UniqueMemoryDc dc;
  std::optional<Selection> selection;
  LONG width = 0, height = 0;

  void PrepareSurface(LONG new_width, LONG new_height);
};

// Creates the surface if the size has changed. A bitmap that could not be created is not tried again until
// the size changes.
void CursorOverlay::State::PrepareSurface(LONG new_width, LONG new_height) {
  if (dc && width == new_width && height == new_height) return;
  selection.reset();
  dc.reset();
  bitmap.reset();
  bits = nullptr;

  dc.reset(CreateCompatibleDC(ScreenDc().get()));
  const BITMAPINFO info = top_down_bitmap(new_width, new_height);
  void* memory = nullptr;
  bitmap.reset(CreateDIBSection(dc.get(), &info, DIB_RGB_COLORS, &memory, nullptr, 0));
  bits = static_cast<std::uint8_t*>(memory);
  if (bitmap) selection.emplace(dc.get(), bitmap.get());
  width = new_width;
  height = new_height;
}

CursorOverlay::CursorOverlay() : state_(std::make_unique<State>()) {}

CursorOverlay::~CursorOverlay() = default;

void CursorOverlay::Draw(CapturedFrame& frame, std::int32_t left, std::int32_t top) {
  worker_thread_.check();
  if (frame.pixels.empty() || frame.width < 1 || frame.height < 1) return;
  const std::optional<Pointer> pointer = visible_pointer();
  if (!pointer) return;
  const LONG x = pointer->left - left;
  const LONG y = pointer->top - top;

  state_->PrepareSurface(static_cast<LONG>(frame.width), static_cast<LONG>(frame.height));
  if (!state_->bits) return;

  // Only the area that the pointer can cover is copied to the surface and back; the rest of the surface is
  // out of date. GDI clips a pointer outside the frame.
  const RECT area = covered_area(*pointer, x, y, state_->width, state_->height);
  const auto stride = static_cast<std::size_t>(frame.width) * kBytesPerPixel;
  copy_area(state_->bits, frame.pixels.data(), stride, area);
  DrawIconEx(state_->dc.get(), x, y, pointer->cursor, 0, 0, 0, nullptr, DI_NORMAL);
  copy_area(frame.pixels.data(), state_->bits, stride, area);
}

}  // namespace vlk::agent
