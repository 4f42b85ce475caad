// The pointer on a frame: against GDI's own drawing over the whole frame, pixel by pixel.
#include "stream/capture/cursor_overlay.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/win32/handles_win32.h"
#include "tests/windows/support/painted_window.h"
#include "tests/windows/support/seam.h"

namespace {

struct Script {
  bool scripted = false;  // else the system answers
  BOOL info_result = TRUE;
  CURSORINFO info = {};
  BOOL icon_result = TRUE;
  bool fail_surface = false;
  int info_calls = 0, icon_calls = 0, surfaces = 0, draws = 0, memory_dcs = 0;
  DWORD info_size = 0;
  int x = 0, y = 0, width = -1, height = -1;
  UINT step = 99, flags = 0;
  HBRUSH brush = nullptr;
};
Script script;

BOOL WINAPI get_cursor_info(PCURSORINFO info) {
  static auto* const system = vlk::test::real<decltype(get_cursor_info)>("user32.dll", "GetCursorInfo");
  ++script.info_calls;
  script.info_size = info->cbSize;
  if (!script.scripted) return system(info);
  const DWORD size = info->cbSize;
  *info = script.info;
  info->cbSize = size;
  return script.info_result;
}

BOOL WINAPI get_icon_info(HICON icon, PICONINFO info) {
  static auto* const system = vlk::test::real<decltype(get_icon_info)>("user32.dll", "GetIconInfo");
  ++script.icon_calls;
  return script.icon_result ? system(icon, info) : FALSE;
}

HBITMAP WINAPI create_dib_section(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                                  DWORD offset) {
  static auto* const system = vlk::test::real<decltype(create_dib_section)>("gdi32.dll", "CreateDIBSection");
  ++script.surfaces;
  if (!script.fail_surface) return system(dc, info, usage, bits, section, offset);
  *bits = nullptr;
  return nullptr;
}

HDC WINAPI create_compatible_dc(HDC dc) {
  static auto* const system =
      vlk::test::real<decltype(create_compatible_dc)>("gdi32.dll", "CreateCompatibleDC");
  ++script.memory_dcs;
  return system(dc);
}

BOOL WINAPI draw_icon(HDC dc, int x, int y, HICON icon, int width, int height, UINT step, HBRUSH brush,
                      UINT flags) {
  static auto* const system = vlk::test::real<decltype(draw_icon)>("user32.dll", "DrawIconEx");
  ++script.draws;
  script.x = x;
  script.y = y;
  script.width = width;
  script.height = height;
  script.step = step;
  script.brush = brush;
  script.flags = flags;
  return system(dc, x, y, icon, width, height, step, brush, flags);
}

}  // namespace

extern "C" {
void* __imp_GetCursorInfo = reinterpret_cast<void*>(get_cursor_info);
void* __imp_GetIconInfo = reinterpret_cast<void*>(get_icon_info);
void* __imp_CreateDIBSection = reinterpret_cast<void*>(create_dib_section);
void* __imp_CreateCompatibleDC = reinterpret_cast<void*>(create_compatible_dc);
void* __imp_DrawIconEx = reinterpret_cast<void*>(draw_icon);
}

namespace vlk::agent {
namespace {

constexpr int kWidth = 150, kHeight = 90;

CapturedFrame make_frame(int width = kWidth, int height = kHeight) {
  CapturedFrame frame;
  frame.width = static_cast<std::uint32_t>(width);
  frame.height = static_cast<std::uint32_t>(height);
  frame.stride = width * 4;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const test::Colour colour = test::pattern(x, y);
      const auto fourth = static_cast<std::uint8_t>(x ^ y);
      frame.pixels.insert(frame.pixels.end(), {colour.blue, colour.green, colour.red, fourth});
    }
  }
  return frame;
}

// What GDI makes of the pointer at (x, y) when the whole frame goes through a surface of its own.
std::vector<std::uint8_t> drawn_by_gdi(const CapturedFrame& frame, HCURSOR cursor, int x, int y) {
  const UniqueMemoryDc dc(CreateCompatibleDC(nullptr));
  const BITMAPINFO info = top_down_bitmap(static_cast<LONG>(frame.width), static_cast<LONG>(frame.height));
  void* bits = nullptr;
  const UniqueBitmap bitmap(CreateDIBSection(dc.get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
  const Selection selection(dc.get(), bitmap.get());
  std::memcpy(bits, frame.pixels.data(), frame.pixels.size());
  DrawIconEx(dc.get(), x, y, cursor, 0, 0, 0, nullptr, DI_NORMAL);
  const auto* first = static_cast<std::uint8_t*>(bits);
  return {first, first + frame.pixels.size()};
}

// A pointer of a size and hot spot of its own: half transparent, or black and white with inverting pixels.
HCURSOR make_cursor(int width, int height, DWORD hot_x, DWORD hot_y, bool in_colour) {
  const auto cells = static_cast<std::size_t>(width * height);
  std::vector<std::uint32_t> colours(cells);
  for (std::size_t i = 0; i < cells; ++i) {
    const std::uint32_t alpha = (i * 29) % 256;
    const std::uint32_t level = alpha * (i % 3 == 0) / 2;
    colours[i] = alpha << 24 | level << 16 | (alpha / 3) << 8 | (alpha - alpha / 4);
  }
  const std::size_t mask_rows = static_cast<std::size_t>(in_colour ? height : 2 * height);
  std::vector<std::uint8_t> mask(mask_rows * static_cast<std::size_t>((width + 15) / 16 * 2));
  for (std::size_t i = 0; i < mask.size(); ++i)
    mask[i] = static_cast<std::uint8_t>(in_colour ? 0 : i * 73);

  ICONINFO icon = {};
  icon.xHotspot = hot_x;
  icon.yHotspot = hot_y;
  const UniqueBitmap mask_bitmap(CreateBitmap(width, static_cast<int>(mask_rows), 1, 1, mask.data()));
  const UniqueBitmap colour_bitmap(in_colour ? CreateBitmap(width, height, 1, 32, colours.data()) : nullptr);
  icon.hbmMask = mask_bitmap.get();
  icon.hbmColor = colour_bitmap.get();
  return CreateIconIndirect(&icon);
}

class Cursor : public testing::Test {
 protected:
  void SetUp() override {
    script = Script();
    script.scripted = true;
    script.info.flags = CURSOR_SHOWING;
    script.info.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    script.info.ptScreenPos = {40, 30};
  }
  void TearDown() override { script = Script(); }

  static void Point(LONG x, LONG y) { script.info.ptScreenPos = {x, y}; }
};

TEST_F(Cursor, AFrameWithoutPixelsCallsNothing) {
  CursorOverlay overlay;
  CapturedFrame empty;
  empty.width = empty.height = 10;
  overlay.Draw(empty, 0, 0);
  CapturedFrame flat = make_frame();
  flat.height = 0;
  overlay.Draw(flat, 0, 0);
  flat.height = kHeight;
  flat.width = 0;
  overlay.Draw(flat, 0, 0);
  EXPECT_EQ(script.info_calls, 0);
  EXPECT_EQ(script.memory_dcs, 0);
}

TEST_F(Cursor, AHiddenOrUnknownPointerLeavesTheFrame) {
  const CapturedFrame untouched = make_frame();
  const auto expect_untouched = [&](const char* why) {
    CursorOverlay overlay;
    CapturedFrame frame = untouched;
    overlay.Draw(frame, 0, 0);
    EXPECT_EQ(frame.pixels, untouched.pixels) << why;
    EXPECT_EQ(script.draws, 0) << why;
    EXPECT_EQ(script.memory_dcs, 0) << why;
  };
  script.info.flags = 2;  // suppressed, as by touch
  expect_untouched("hidden");
  script.info.flags = CURSOR_SHOWING;
  script.info_result = FALSE;
  expect_untouched("no information");
  script.info_result = TRUE;
  const HCURSOR cursor = script.info.hCursor;
  script.info.hCursor = nullptr;
  expect_untouched("no pointer");
  EXPECT_EQ(script.icon_calls, 0);
  script.info.hCursor = cursor;
  script.icon_result = FALSE;
  expect_untouched("no icon information");
  EXPECT_EQ(script.info_size, 24u);
}

TEST_F(Cursor, IsDrawnAtItsNaturalSizeThroughItsMasks) {
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(script.width, 0);
  EXPECT_EQ(script.height, 0);
  EXPECT_EQ(script.step, 0u);
  EXPECT_EQ(script.brush, nullptr);
  EXPECT_EQ(script.flags, 3u);
}

// Every pixel, inside and outside the pointer's rectangle, for pointers of each kind in every place.
TEST_F(Cursor, EveryPixelIsWhatGdiMakesOfTheWholeFrame) {
  struct Row {
    std::string name;
    HCURSOR cursor;
    int hot_x, hot_y;
    bool owned;
  };
  const Row cursors[] = {
      {"arrow", LoadCursorW(nullptr, IDC_ARROW), -1, -1, false},
      {"text", LoadCursorW(nullptr, IDC_IBEAM), -1, -1, false},
      {"colour", make_cursor(32, 32, 5, 7, true), 5, 7, true},
      {"mask", make_cursor(32, 32, 16, 3, false), 16, 3, true},
      {"large", make_cursor(64, 48, 60, 40, true), 60, 40, true},
  };
  const POINT positions[] = {{40, 30},     {0, 0},        {-1, -1},    {1, 2},    {kWidth - 1, kHeight - 1},
                             {kWidth, 10}, {10, kHeight}, {-5, 45},    {75, -9},  {kWidth + 3, 40},
                             {-100, -100}, {5000, 5000},  {-40000, 7}, {140, 80}, {20, 85}};
  for (const Row& row : cursors) {
    ICONINFO icon = {};
    ASSERT_TRUE(GetIconInfo(row.cursor, &icon)) << row.name;
    const UniqueBitmap colour(icon.hbmColor);
    const UniqueBitmap mask(icon.hbmMask);
    if (row.owned) {
      EXPECT_EQ(icon.xHotspot, static_cast<DWORD>(row.hot_x));
      EXPECT_EQ(icon.yHotspot, static_cast<DWORD>(row.hot_y));
    }
    script.info.hCursor = row.cursor;
    CursorOverlay overlay;  // one for all positions, so that stale pixels of its surface would show
    bool drew = false;
    for (const POINT& at : positions) {
      Point(at.x, at.y);
      const CapturedFrame before = make_frame();
      CapturedFrame frame = before;
      overlay.Draw(frame, 0, 0);
      const auto expected = drawn_by_gdi(before, row.cursor, at.x - static_cast<int>(icon.xHotspot),
                                         at.y - static_cast<int>(icon.yHotspot));
      EXPECT_TRUE(frame.pixels == expected) << row.name << " at " << at.x << ", " << at.y;
      drew |= frame.pixels != before.pixels;
    }
    EXPECT_TRUE(drew) << row.name;
    if (row.owned) DestroyIcon(row.cursor);
  }
}

TEST_F(Cursor, PositionCountsFromTheMonitorsOrigin) {
  Point(1920, 0);
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  overlay.Draw(frame, 1920, 0);
  EXPECT_EQ(script.x, 0);
  EXPECT_EQ(script.y, 0);
  Point(-1900, -180);
  overlay.Draw(frame, -1920, -200);
  EXPECT_EQ(script.x, 20);
  EXPECT_EQ(script.y, 20);
}

TEST_F(Cursor, HotSpotBeyondThePositionGivesNegativeOnes) {
  const HCURSOR cursor = make_cursor(32, 32, 20, 25, true);
  script.info.hCursor = cursor;
  Point(3, 4);
  CursorOverlay overlay;
  const CapturedFrame before = make_frame();
  CapturedFrame frame = before;
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(script.x, -17);
  EXPECT_EQ(script.y, -21);
  EXPECT_NE(frame.pixels, before.pixels);
  DestroyIcon(cursor);
}

TEST_F(Cursor, SurfaceServesWhileTheSizeStays) {
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  for (int i = 0; i < 5; ++i)
    overlay.Draw(frame, 0, 0);
  EXPECT_EQ(script.surfaces, 1);
  EXPECT_EQ(script.draws, 5);
  CapturedFrame other = make_frame(kHeight, kWidth);
  const CapturedFrame before = other;
  overlay.Draw(other, 0, 0);
  EXPECT_EQ(script.surfaces, 2);
  EXPECT_EQ(other.pixels, drawn_by_gdi(before, script.info.hCursor, script.x, script.y));
}

TEST_F(Cursor, SurfaceThatFailedIsTriedAgainOnlyForAnotherSize) {
  script.fail_surface = true;
  CursorOverlay overlay;
  const CapturedFrame before = make_frame();
  CapturedFrame frame = before;
  overlay.Draw(frame, 0, 0);
  script.fail_surface = false;
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(script.surfaces, 1);
  EXPECT_EQ(script.draws, 0);
  EXPECT_EQ(frame.pixels, before.pixels);
  CapturedFrame other = make_frame(kWidth + 1, kHeight);
  overlay.Draw(other, 0, 0);
  EXPECT_EQ(script.draws, 1);
}

TEST_F(Cursor, OverlaysLeaveNothingBehind) {
  CapturedFrame frame = make_frame();
  CapturedFrame other = make_frame(40, 40);
  const auto live = [&] {
    CursorOverlay overlay;
    overlay.Draw(frame, 0, 0);
    overlay.Draw(other, 0, 0);
  };
  for (int i = 0; i < 3; ++i)
    live();
  const test::Holdings before = test::holdings();
  for (int i = 0; i < 200; ++i)
    live();
  EXPECT_EQ(test::holdings().gdi, before.gdi);
  EXPECT_EQ(test::holdings().handles, before.handles);

  CursorOverlay overlay;
  overlay.Draw(frame, 0, 0);
  const DWORD steady = test::holdings().gdi;
  for (int i = 0; i < 200; ++i)
    overlay.Draw(frame, 0, 0);
  EXPECT_EQ(test::holdings().gdi, steady);
}

TEST_F(Cursor, RealPointerOverAnOwnWindowIsDrawnWhereItIs) {
  script = Script();
  const HCURSOR cursor = LoadCursorW(nullptr, IDC_ARROW);
  const test::PaintedWindow window(200, 150, 300, 200, test::pattern, cursor);
  CURSORINFO info = {};
  info.cbSize = sizeof(info);
  ASSERT_TRUE(test::pump_until([&] {
    SetCursorPos(260, 190);
    return GetCursorInfo(&info) && info.hCursor == cursor && info.ptScreenPos.x == 260 &&
           info.ptScreenPos.y == 190;
  }));
  const CapturedFrame before = make_frame();
  CapturedFrame frame = before;
  CursorOverlay overlay;
  overlay.Draw(frame, 210, 160);
  EXPECT_NE(frame.pixels, before.pixels);
  EXPECT_EQ(frame.pixels, drawn_by_gdi(before, cursor, 50, 30));
}

}  // namespace
}  // namespace vlk::agent
