// The pointer drawn on a frame, compared pixel by pixel with GDI drawing it over the whole frame.
#include "stream/capture/cursor_overlay.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/win32/handles_win32.h"
#include "tests/windows/stream/capture/cursor_seam.h"
#include "tests/windows/support/holdings.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::cursor_script;

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

// The frame's pixels after GDI draws the pointer at (x, y) on a copy of the whole frame.
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

// Creates a pointer with the given size and hot spot: partly transparent in colour, or black and white with
// inverting pixels.
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
    cursor_script = {};
    cursor_script.scripted = true;
    cursor_script.info.flags = CURSOR_SHOWING;
    cursor_script.info.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    cursor_script.info.ptScreenPos = {40, 30};
  }
  void TearDown() override { cursor_script = {}; }

  static void Point(LONG x, LONG y) { cursor_script.info.ptScreenPos = {x, y}; }
};

TEST_F(Cursor, FrameWithoutPixelsCausesNoCallsToWindows) {
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
  EXPECT_EQ(cursor_script.info_calls, 0);
  EXPECT_EQ(cursor_script.memory_dcs, 0);
}

TEST_F(Cursor, HiddenOrUnknownPointerLeavesTheFrameUnchanged) {
  const CapturedFrame untouched = make_frame();
  const auto expect_untouched = [&](const char* why) {
    CursorOverlay overlay;
    CapturedFrame frame = untouched;
    overlay.Draw(frame, 0, 0);
    EXPECT_EQ(frame.pixels, untouched.pixels) << why;
    EXPECT_EQ(cursor_script.draws, 0) << why;
    EXPECT_EQ(cursor_script.memory_dcs, 0) << why;
  };
  cursor_script.info.flags = 2;  // CURSOR_SUPPRESSED, set while the user works by touch
  expect_untouched("hidden");
  cursor_script.info.flags = CURSOR_SHOWING;
  cursor_script.info_result = FALSE;
  expect_untouched("no information");
  cursor_script.info_result = TRUE;
  const HCURSOR cursor = cursor_script.info.hCursor;
  cursor_script.info.hCursor = nullptr;
  expect_untouched("no pointer");
  EXPECT_EQ(cursor_script.icon_calls, 0);
  cursor_script.info.hCursor = cursor;
  cursor_script.icon_result = FALSE;
  expect_untouched("no icon information");
  EXPECT_EQ(cursor_script.info_size, 24u);
}

TEST_F(Cursor, PointerIsDrawnAtItsOwnSizeWithBothMasks) {
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(cursor_script.width, 0);
  EXPECT_EQ(cursor_script.height, 0);
  EXPECT_EQ(cursor_script.step, 0u);
  EXPECT_EQ(cursor_script.brush, nullptr);
  EXPECT_EQ(cursor_script.flags, 3u);
}

// Compares every pixel, inside and outside the pointer's rectangle, for each kind of pointer at each
// position.
TEST_F(Cursor, EveryPixelIsTheSameAsWhenGdiDrawsOnTheWholeFrame) {
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
    cursor_script.info.hCursor = row.cursor;
    CursorOverlay overlay;  // used for all positions, so that stale pixels of its surface would be found
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

TEST_F(Cursor, PointerPositionIsRelativeToTheMonitor) {
  Point(1920, 0);
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  overlay.Draw(frame, 1920, 0);
  EXPECT_EQ(cursor_script.x, 0);
  EXPECT_EQ(cursor_script.y, 0);
  Point(-1900, -180);
  overlay.Draw(frame, -1920, -200);
  EXPECT_EQ(cursor_script.x, 20);
  EXPECT_EQ(cursor_script.y, 20);
}

TEST_F(Cursor, HotSpotGreaterThanThePositionGivesNegativeCoordinates) {
  const HCURSOR cursor = make_cursor(32, 32, 20, 25, true);
  cursor_script.info.hCursor = cursor;
  Point(3, 4);
  CursorOverlay overlay;
  const CapturedFrame before = make_frame();
  CapturedFrame frame = before;
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(cursor_script.x, -17);
  EXPECT_EQ(cursor_script.y, -21);
  EXPECT_NE(frame.pixels, before.pixels);
  DestroyIcon(cursor);
}

TEST_F(Cursor, SurfaceIsReusedForFramesOfTheSameSize) {
  CursorOverlay overlay;
  CapturedFrame frame = make_frame();
  for (int i = 0; i < 5; ++i)
    overlay.Draw(frame, 0, 0);
  EXPECT_EQ(cursor_script.surfaces, 1);
  EXPECT_EQ(cursor_script.draws, 5);
  CapturedFrame other = make_frame(kHeight, kWidth);
  const CapturedFrame before = other;
  overlay.Draw(other, 0, 0);
  EXPECT_EQ(cursor_script.surfaces, 2);
  EXPECT_EQ(other.pixels, drawn_by_gdi(before, cursor_script.info.hCursor, cursor_script.x, cursor_script.y));
}

TEST_F(Cursor, CreatingASurfaceThatFailedIsRetriedOnlyForAFrameOfAnotherSize) {
  cursor_script.fail_surface = true;
  CursorOverlay overlay;
  const CapturedFrame before = make_frame();
  CapturedFrame frame = before;
  overlay.Draw(frame, 0, 0);
  cursor_script.fail_surface = false;
  overlay.Draw(frame, 0, 0);
  EXPECT_EQ(cursor_script.surfaces, 1);
  EXPECT_EQ(cursor_script.draws, 0);
  EXPECT_EQ(frame.pixels, before.pixels);
  CapturedFrame other = make_frame(kWidth + 1, kHeight);
  overlay.Draw(other, 0, 0);
  EXPECT_EQ(cursor_script.draws, 1);
}

TEST_F(Cursor, OverlaysLeaveNothingOpen) {
  CapturedFrame frame = make_frame();
  CapturedFrame other = make_frame(40, 40);
  const auto live = [&] {
    CursorOverlay overlay;
    overlay.Draw(frame, 0, 0);
    overlay.Draw(other, 0, 0);
  };
  EXPECT_EQ(test::left_open_by(live), test::Holdings());

  CursorOverlay overlay;
  EXPECT_EQ(test::left_open_by([&] { overlay.Draw(frame, 0, 0); }).gdi, 0u);
}

TEST_F(Cursor, RealPointerIsDrawnAtItsPosition) {
  cursor_script = {};
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
